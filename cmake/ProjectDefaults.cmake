# Language level, warnings, symbol visibility and where built files go: the same for every target of the project.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

if(NOT CMAKE_BUILD_TYPE AND NOT CMAKE_CONFIGURATION_TYPES)
    set(CMAKE_BUILD_TYPE Release)
endif()

# All libraries side by side, all programs side by side, found relative to each other: a build tree and an
# installed prefix behave alike, and a library can be replaced by one of the same SONAME.
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/lib)
set(CMAKE_ARCHIVE_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/lib/static)
set(CMAKE_BUILD_WITH_INSTALL_RPATH ON)
set(CMAKE_INSTALL_RPATH "$ORIGIN;$ORIGIN/../${CMAKE_INSTALL_LIBDIR};$ORIGIN/../lib")

find_program(KNX_CCACHE ccache)
if(KNX_CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
    set(CMAKE_CXX_COMPILER_LAUNCHER ${KNX_CCACHE})
endif()

add_compile_options(
    -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Woverloaded-virtual -Wcast-align -Wunused
    -Wimplicit-fallthrough -Werror)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
    # With optimisation, gcc 12 sees overlapping copies in std::string's operator+ where there are none.
    add_compile_options($<$<NOT:$<CONFIG:Debug>>:-Wno-restrict>)
endif()

# KNX_SANITIZE is a comma-separated list for -fsanitize, e.g. "address,undefined" or "thread".
set(KNX_SANITIZE "" CACHE STRING "Sanitizers to build with")
if(KNX_SANITIZE)
    add_compile_options(-fsanitize=${KNX_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
    add_link_options(-fsanitize=${KNX_SANITIZE})
    if(KNX_SANITIZE MATCHES "thread" AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
        # Asio puts a fence around each handler; gcc says that ThreadSanitizer ignores fences. Asio's queues hand
        # handlers over under a mutex, which it does see.
        add_compile_options(-Wno-tsan)
    endif()
endif()
