#include "ProjectFile/ApplicationData.h"
#include "ProjectFile/ApplicationDataFormat.h"
#include "ProjectFile/FixedDataPoints.h"
#include "ProjectFile/Utf8.h"
#include "ValueConverter/DatapointTypes.h"

#include <fmt/format.h>

#include <algorithm>
#include <set>

namespace ProjectFile {

using namespace ApplicationDataFormat;

namespace {

using Octets = std::span<const std::uint8_t>;

std::uint32_t NumberAt(Octets data, std::size_t at, std::size_t octets) {
    std::uint32_t number = 0;
    for (const std::uint8_t octet : data.subspan(at, octets)) {
        number = number << 8 | octet;
    }
    return number;
}

/// Takes one record's content apart from its front. What is taken must be there; the table of kinds sees to
/// that.
class Reader {
public:
    explicit Reader(Octets content) : m_rest(content) {}

    std::uint8_t U8() { return static_cast<std::uint8_t>(Take(1)); }
    std::uint16_t U16() { return static_cast<std::uint16_t>(Take(2)); }
    std::uint32_t U32() { return Take(4); }
    /// All that is left.
    std::string Text() {
        std::string text(m_rest.begin(), m_rest.end());
        m_rest = {};
        return text;
    }

private:
    std::uint32_t Take(std::size_t octets) {
        const std::uint32_t number = NumberAt(m_rest, 0, octets);
        m_rest = m_rest.subspan(octets);
        return number;
    }

    Octets m_rest;
};

/// From records to a Project that nobody has checked yet. Every Read… gives "" or what is wrong.
class Decoder {
public:
    std::string ReadRecord(std::uint8_t kind, Octets content);

    /// When all records are read.
    std::string Finish();

    const Project& Result() const { return m_project; }

private:
    struct Row;
    static const Row s_rows[];

    std::string ReadDevice(Reader content);
    std::string ReadIdentification(Reader content);
    std::string ReadKnxOwner(Reader content);
    std::string ReadTimeCo(Reader content);
    std::string ReadTranslationRange(Reader content);
    std::string ReadInterfaceObject(Reader content);
    std::string ReadProperty(Reader content);
    std::string ReadExtendedProperty(Reader content);
    std::string ReadDataPoint(Reader content);
    std::string ReadFixedDataPoint(Reader content);
    std::string ReadBinding(Reader content);
    std::string ReadUnit(Reader content);
    std::string ReadDescription(Reader content);
    std::string ReadInitial(Reader content);
    std::string ReadOwner(Reader content);

    DataPoint& Point() { return m_project.dataPoints[m_point]; }

    Project m_project;
    std::set<Kind> m_read;                   // kinds that stand at most once, of the project
    std::set<Kind> m_readOfPoint;            // the same of the data point
    std::size_t m_point = 0;                 // place of the data point that records belong to
    bool m_hasPoint = false;                 // there is one
    std::set<std::uint32_t> m_fixedListed;   // ids
    std::set<std::size_t> m_placesWithOwner; // of data points whose owner a record named
};

struct Decoder::Row {
    enum class Place : std::uint8_t { Once, Repeated, OfPoint };

    Kind kind;
    std::string_view name; // for messages
    std::size_t least;     // bytes
    std::size_t most;
    Place place;
    std::string (Decoder::*read)(Reader content);
};

const Decoder::Row Decoder::s_rows[] = {
    {Kind::Device, "device", 0, kMaxRecord, Row::Place::Once, &Decoder::ReadDevice},
    {Kind::Identification, "identification", 1, 1, Row::Place::Once, &Decoder::ReadIdentification},
    {Kind::KnxOwner, "KNX owner", 0, kMaxRecord, Row::Place::Once, &Decoder::ReadKnxOwner},
    {Kind::TimeCo, "time CO", 6, 6, Row::Place::Repeated, &Decoder::ReadTimeCo},
    {Kind::TranslationRange, "translation range", 4, 4, Row::Place::Once, &Decoder::ReadTranslationRange},
    {Kind::InterfaceObject, "interface object", 2, 2, Row::Place::Once, &Decoder::ReadInterfaceObject},
    {Kind::Property, "property", 5, kMaxRecord, Row::Place::Repeated, &Decoder::ReadProperty},
    {Kind::ExtendedProperty, "extended property", 9, kMaxRecord, Row::Place::Repeated,
     &Decoder::ReadExtendedProperty},
    {Kind::DataPoint, "data point", 9, kMaxRecord, Row::Place::Repeated, &Decoder::ReadDataPoint},
    {Kind::FixedDataPoint, "fixed data point", 4, 4, Row::Place::Repeated, &Decoder::ReadFixedDataPoint},
    {Kind::Binding, "binding", 5, 5, Row::Place::OfPoint, &Decoder::ReadBinding},
    {Kind::Unit, "unit", 0, kMaxRecord, Row::Place::OfPoint, &Decoder::ReadUnit},
    {Kind::Description, "description", 0, kMaxRecord, Row::Place::OfPoint, &Decoder::ReadDescription},
    {Kind::Initial, "initial value", 0, kMaxRecord, Row::Place::OfPoint, &Decoder::ReadInitial},
    {Kind::Owner, "owner", 0, kMaxRecord, Row::Place::OfPoint, &Decoder::ReadOwner},
};

std::string Decoder::ReadRecord(std::uint8_t kind, Octets content) {
    const auto row = std::find_if(std::begin(s_rows), std::end(s_rows), [kind](const Row& candidate) {
        return candidate.kind == static_cast<Kind>(kind);
    });
    if (row == std::end(s_rows)) {
        return (kind & kMayBeSkipped) != 0
                   ? std::string()
                   : fmt::format("a record of kind {:02X}h is not known to this program and must not be "
                                 "passed over; the data are made for a later version",
                                 kind);
    }
    const auto fault = [row](std::string_view cause) {
        return fmt::format("the {} record {}", row->name, cause);
    };
    if (content.size() < row->least || content.size() > row->most) {
        return fault(fmt::format("has {} bytes instead of {}{}", content.size(),
                                 row->least == row->most ? "" : "at least ", row->least));
    }
    if (m_read.empty() && row->kind != Kind::Device) {
        return fault("stands before the device record, which is the first");
    }
    if (row->place == Row::Place::OfPoint && !m_hasPoint) {
        return fault("belongs to a data point, and none stands before it");
    }
    if (row->place == Row::Place::OfPoint && Point().IsFixed() && row->kind != Kind::Binding &&
        row->kind != Kind::Description) {
        return fault(fmt::format("belongs to data point {}, of which this is fixed", Point().id));
    }
    if (row->place != Row::Place::Repeated &&
        !(row->place == Row::Place::OfPoint ? m_readOfPoint : m_read).insert(row->kind).second) {
        return fault("stands here a second time");
    }
    const std::string cause = (this->*row->read)(Reader(content));
    return cause.empty() ? cause : fault(cause);
}

std::string Decoder::Finish() {
    if (m_read.empty()) {
        return "there is no device record";
    }
    for (std::size_t place = 0; place < m_project.dataPoints.size(); ++place) {
        DataPoint& point = m_project.dataPoints[place];
        if (!point.IsFixed() && !m_placesWithOwner.contains(place)) {
            point.owner = m_project.DefaultOwner(point);
        }
    }
    return {};
}

/// The rest of the content. "" or what is wrong with it.
std::string TakeText(Reader content, std::string& text) {
    text = content.Text();
    return IsUtf8(text) ? "" : "holds a text that is not UTF-8";
}

std::string Decoder::ReadDevice(Reader content) {
    std::string fault = TakeText(content, m_project.device);
    m_project.dataPoints = FixedDataPoints(m_project.device);
    return fault;
}

std::string Decoder::ReadIdentification(Reader content) {
    const std::uint8_t number = content.U8();
    m_project.identification = number == 1 ? Identification::Urn : Identification::Id;
    return number <= 1 ? "" : fmt::format("has {} instead of 0 (by id) or 1 (by URN)", number);
}

std::string Decoder::ReadKnxOwner(Reader content) {
    return TakeText(content, m_project.knxOwner);
}

std::string Decoder::ReadTimeCo(Reader content) {
    TimeCo& timeCo = m_project.timeCos.emplace_back();
    timeCo.co = content.U16();
    timeCo.dpt.main = content.U16();
    timeCo.dpt.sub = content.U16();
    return {};
}

std::string Decoder::ReadTranslationRange(Reader content) {
    m_project.translationRange.first = content.U16();
    m_project.translationRange.last = content.U16();
    return {};
}

std::string Decoder::ReadInterfaceObject(Reader content) {
    m_project.interfaceObject = content.U16();
    return {};
}

std::string Decoder::ReadProperty(Reader content) {
    Property& property = m_project.properties.emplace_back();
    property.id = content.U16();
    property.dataType = content.U8();
    property.elements = content.U16();
    return TakeText(content, property.name);
}

std::string Decoder::ReadExtendedProperty(Reader content) {
    ExtendedProperty& extended = m_project.extendedProperties.emplace_back();
    extended.objectType = content.U16();
    extended.instances = content.U16();
    extended.property.id = content.U16();
    extended.property.dataType = content.U8();
    extended.property.elements = content.U16();
    return TakeText(content, extended.property.name);
}

std::string Decoder::ReadDataPoint(Reader content) {
    DataPoint point;
    point.id = content.U32();
    Datapoint::Number number;
    number.main = content.U16();
    number.sub = content.U16();
    point.dptText = Datapoint::ToString(number);
    if (const Datapoint::Type* type = Datapoint::Find(number)) {
        point.unit = type->unit;
    }
    const std::uint8_t flags = content.U8();
    if ((flags & ~(kAccessMask | kPersistent)) != 0 || (flags & kAccessMask) == kAccessMask) {
        return fmt::format("has the flags {:02X}h, which this program does not know", flags);
    }
    constexpr Access kAccesses[] = {Access::ReadWrite, Access::Read, Access::Write};
    point.access = kAccesses[flags & kAccessMask];
    point.persistent = (flags & kPersistent) != 0;
    if (point.IsFixed()) {
        return fmt::format("has the id {}, which is a fixed data point's and has a record of its own",
                           point.id);
    }
    std::string fault = TakeText(content, point.name);
    m_point = m_project.dataPoints.size();
    m_hasPoint = true;
    m_readOfPoint.clear();
    m_project.dataPoints.push_back(std::move(point));
    return fault;
}

std::string Decoder::ReadFixedDataPoint(Reader content) {
    const std::uint32_t id = content.U32();
    if (id < FixedId::kFirst || id > FixedId::kLast) {
        return fmt::format("has the id {}, which is no fixed data point's", id);
    }
    if (!m_fixedListed.insert(id).second) {
        return fmt::format("of data point {} stands here a second time", id);
    }
    m_point = id - FixedId::kFirst;
    m_hasPoint = true;
    m_readOfPoint.clear();
    return {};
}

std::string Decoder::ReadBinding(Reader content) {
    KnxBinding& binding = Point().knx.emplace();
    binding.readCo = content.U16();
    binding.writeCo = content.U16();
    const std::uint8_t flags = content.U8();
    binding.event = (flags & kEvent) != 0;
    binding.readInternal = (flags & kReadInternal) != 0;
    return (flags & ~(kEvent | kReadInternal)) == 0
               ? ""
               : fmt::format("has the flags {:02X}h, which this program does not know", flags);
}

std::string Decoder::ReadUnit(Reader content) {
    return TakeText(content, Point().unit);
}

std::string Decoder::ReadDescription(Reader content) {
    return TakeText(content, Point().description);
}

std::string Decoder::ReadInitial(Reader content) {
    return TakeText(content, Point().initial.emplace());
}

std::string Decoder::ReadOwner(Reader content) {
    m_placesWithOwner.insert(m_point);
    return TakeText(content, Point().owner);
}

/// What is wrong with the header; "" when nothing is, and then the data have the length that it names.
std::string HeaderFault(Octets data) {
    if (data.empty()) {
        return "the data are empty";
    }
    if (data.size() < kHeaderSize) {
        return fmt::format("the data are cut short: {} bytes, and the header alone has {}", data.size(),
                           kHeaderSize);
    }
    if (!std::equal(kMagic.begin(), kMagic.end(), data.begin())) {
        return "the data do not begin with \"KAPD\"; they are not made for this program";
    }
    if (const std::uint32_t version = NumberAt(data, 4, 2); version != kVersion) {
        return fmt::format("version {} of the format is not known to this program; it reads version {}",
                           version, kVersion);
    }
    if (const std::uint32_t flags = NumberAt(data, 6, 2); flags != 0) {
        return fmt::format("the header has the flags {:04X}h, which this program does not know", flags);
    }
    const std::uint32_t length = NumberAt(data, 8, 4);
    if (length < kHeaderSize) {
        return fmt::format("the header names a length of {} bytes, less than its own", length);
    }
    if (length > data.size()) {
        return fmt::format("the data are cut short: {} bytes of {}", data.size(), length);
    }
    return {};
}

} // namespace

LoadResult DecodeApplicationData(Octets data, const std::string& name) {
    const auto refused = [&name](std::size_t place, const std::string& cause) -> LoadResult {
        return {nullptr, {fmt::format("{}: byte {}: {}", name, place, cause)}};
    };
    if (const std::string fault = HeaderFault(data); !fault.empty()) {
        return refused(0, fault);
    }
    data = data.first(NumberAt(data, 8, 4));
    const std::uint32_t told = NumberAt(data, kChecksumAt, 4);
    if (const std::uint32_t found = Checksum(data); found != told) {
        return refused(kChecksumAt, fmt::format("the data are damaged: their checksum is {:08X}h, and the "
                                                "header names {:08X}h",
                                                found, told));
    }
    Decoder decoder;
    for (std::size_t at = kHeaderSize; at < data.size();) {
        const std::size_t rest = data.size() - at;
        const std::size_t size = rest < kRecordHeaderSize ? 0 : NumberAt(data, at + 1, 2);
        if (rest < kRecordHeaderSize + size) {
            return refused(at, fmt::format("{} bytes are left, fewer than the record has", rest));
        }
        if (const std::string fault =
                decoder.ReadRecord(data[at], data.subspan(at + kRecordHeaderSize, size));
            !fault.empty()) {
            return refused(at, fault);
        }
        at += kRecordHeaderSize + size;
    }
    if (const std::string fault = decoder.Finish(); !fault.empty()) {
        return refused(data.size(), fault);
    }
    return ParseProject(WriteProject(decoder.Result()), name);
}

} // namespace ProjectFile
