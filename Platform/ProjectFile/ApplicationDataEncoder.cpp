#include "ProjectFile/ApplicationData.h"
#include "ProjectFile/ApplicationDataFormat.h"
#include "ProjectFile/FixedDataPoints.h"
#include "ValueConverter/DatapointTypes.h"

#include <boost/crc.hpp>
#include <fmt/format.h>

#include <stdexcept>

namespace ProjectFile {

using namespace ApplicationDataFormat;

namespace {

/// Bytes, highest first.
class Writer {
public:
    Writer& Number(std::uint64_t value, unsigned octets) {
        for (unsigned shift = octets * 8; shift != 0; shift -= 8) {
            m_bytes.push_back(static_cast<std::uint8_t>(value >> (shift - 8)));
        }
        return *this;
    }
    Writer& U8(std::uint8_t value) { return Number(value, 1); }
    Writer& U16(std::uint16_t value) { return Number(value, 2); }
    Writer& U32(std::uint32_t value) { return Number(value, 4); }
    Writer& Bytes(std::span<const std::uint8_t> bytes) {
        m_bytes.insert(m_bytes.end(), bytes.begin(), bytes.end());
        return *this;
    }
    Writer& Text(std::string_view text) {
        m_bytes.insert(m_bytes.end(), text.begin(), text.end());
        return *this;
    }

    const std::vector<std::uint8_t>& Written() const { return m_bytes; }

private:
    std::vector<std::uint8_t> m_bytes;
};

class TooLong : public std::runtime_error {
    using runtime_error::runtime_error;
};

class Encoder {
public:
    explicit Encoder(const Project& project) : m_project(project) {}

    std::vector<std::uint8_t> Run() {
        AddDevice();
        const std::vector<DataPoint> fixed = FixedDataPoints(m_project.device);
        for (const DataPoint& point : m_project.dataPoints) {
            m_holder = fmt::format("data point {}", point.id);
            if (point.IsFixed()) {
                AddFixed(point, fixed[point.id - FixedId::kFirst]);
            } else {
                AddFree(point);
            }
        }
        return SealApplicationData(m_records.Written());
    }

private:
    void AddDevice() {
        Add(Kind::Device, Writer().Text(m_project.device));
        if (m_project.identification == Identification::Urn) {
            Add(Kind::Identification, Writer().U8(1));
        }
        if (m_project.knxOwner != Project::kDefaultKnxOwner) {
            Add(Kind::KnxOwner, Writer().Text(m_project.knxOwner));
        }
        for (const auto& [co, dpt] : m_project.timeCos) {
            Add(Kind::TimeCo, Writer().U16(co).U16(dpt.main).U16(dpt.sub));
        }
        if (m_project.translationRange != CoRange{}) {
            Add(Kind::TranslationRange,
                Writer().U16(m_project.translationRange.first).U16(m_project.translationRange.last));
        }
        if (m_project.interfaceObject != 0) {
            Add(Kind::InterfaceObject, Writer().U16(m_project.interfaceObject));
        }
        for (const auto& [id, name, dataType, elements] : m_project.properties) {
            Add(Kind::Property, Writer().U16(id).U8(dataType).U16(elements).Text(name));
        }
        for (const auto& [property, objectType, instances] : m_project.extendedProperties) {
            Add(Kind::ExtendedProperty, Writer()
                                            .U16(objectType)
                                            .U16(instances)
                                            .U16(property.id)
                                            .U8(property.dataType)
                                            .U16(property.elements)
                                            .Text(property.name));
        }
    }

    void AddFixed(const DataPoint& point, const DataPoint& unlisted) {
        if (point == unlisted) {
            return;
        }
        Add(Kind::FixedDataPoint, Writer().U32(point.id));
        AddBinding(point);
        if (point.description != unlisted.description) {
            Add(Kind::Description, Writer().Text(point.description));
        }
    }

    void AddFree(const DataPoint& point) {
        const Datapoint::Number number = *Datapoint::Parse(point.dptText);
        std::uint8_t flags = point.persistent ? kPersistent : 0;
        flags |= point.access == Access::Read ? 1 : point.access == Access::Write ? 2 : 0;
        Add(Kind::DataPoint,
            Writer().U32(point.id).U16(number.main).U16(number.sub).U8(flags).Text(point.name));
        AddBinding(point);
        if (point.unit != Datapoint::Find(number)->unit) {
            Add(Kind::Unit, Writer().Text(point.unit));
        }
        if (!point.description.empty()) {
            Add(Kind::Description, Writer().Text(point.description));
        }
        if (point.initial) {
            Add(Kind::Initial, Writer().Text(*point.initial));
        }
        if (point.owner != m_project.DefaultOwner(point)) {
            Add(Kind::Owner, Writer().Text(point.owner));
        }
    }

    void AddBinding(const DataPoint& point) {
        if (point.knx) {
            const auto flags = static_cast<std::uint8_t>((point.knx->event ? kEvent : 0) |
                                                         (point.knx->readInternal ? kReadInternal : 0));
            Add(Kind::Binding, Writer().U16(point.knx->readCo).U16(point.knx->writeCo).U8(flags));
        }
    }

    void Add(Kind kind, const Writer& content) {
        const std::size_t size = content.Written().size();
        if (size > kMaxRecord) {
            throw TooLong(fmt::format("{} has a text that is too long: {} bytes for a record that holds {}",
                                      m_holder, size, kMaxRecord));
        }
        m_records.U8(static_cast<std::uint8_t>(kind))
            .U16(static_cast<std::uint16_t>(size))
            .Bytes(content.Written());
    }

    const Project& m_project;
    std::string m_holder = "the member \"knx\""; // of what is added next
    Writer m_records;
};

} // namespace

std::uint32_t ApplicationDataFormat::Checksum(std::span<const std::uint8_t> data) {
    boost::crc_32_type checksum;
    checksum.process_bytes(data.data(), kChecksumAt);
    checksum.process_bytes(data.data() + kHeaderSize, data.size() - kHeaderSize);
    return checksum.checksum();
}

std::vector<std::uint8_t> SealApplicationData(std::span<const std::uint8_t> records) {
    Writer data;
    data.Bytes(kMagic)
        .U16(kVersion)
        .U16(0)
        .U32(static_cast<std::uint32_t>(kHeaderSize + records.size()))
        .U32(0)
        .Bytes(records);
    std::vector<std::uint8_t> sealed = data.Written();
    const std::vector<std::uint8_t> checksum = Writer().U32(Checksum(sealed)).Written();
    std::copy(checksum.begin(), checksum.end(), sealed.begin() + kChecksumAt);
    return sealed;
}

EncodeResult EncodeApplicationData(const Project& project) {
    try {
        return {Encoder(project).Run(), {}};
    } catch (const TooLong& error) {
        return {{}, error.what()};
    }
}

} // namespace ProjectFile
