# Installs the package KnxContract: find_package(KnxContract) then gives Knx::Contract, Knx::Base,
# Knx::ValueConverter and Knx::DeviceStackClient, as far as they were built. Each of them adds itself to the
# export set KnxContractTargets where it is defined.
include(CMakePackageConfigHelpers)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/KnxContract)

configure_package_config_file(cmake/KnxContractConfig.cmake.in
    ${CMAKE_BINARY_DIR}/KnxContractConfig.cmake
    INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(${CMAKE_BINARY_DIR}/KnxContractConfigVersion.cmake
    COMPATIBILITY SameMinorVersion)

install(FILES
    ${CMAKE_BINARY_DIR}/KnxContractConfig.cmake
    ${CMAKE_BINARY_DIR}/KnxContractConfigVersion.cmake
    DESTINATION ${package_dir})
install(EXPORT KnxContractTargets NAMESPACE Knx:: DESTINATION ${package_dir})
