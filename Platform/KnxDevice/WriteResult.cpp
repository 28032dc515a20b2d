#include "KnxDevice/WriteResult.h"

namespace KnxDevice {

const char* ToString(WriteResult result) {
    switch (result) {
    case WriteResult::Done: break;
    case WriteResult::NoSuchProperty: return "there is no such property";
    case WriteResult::NoSuchElement: return "the property has no such element";
    case WriteResult::ReadOnly: return "the property is read only";
    case WriteResult::Denied: return "the access level does not allow it";
    case WriteResult::WrongLength: return "a value of the property has another length";
    case WriteResult::NoSuchMemory: return "there is no memory at the address";
    case WriteResult::MemoryEnds: return "the memory ends before the last octet";
    case WriteResult::NotLoading: return "the memory is written only while its object is loading";
    case WriteResult::UnknownEvent: return "there is no such load event or load control";
    case WriteResult::WrongState: return "the load state does not allow the load event";
    case WriteResult::InvalidLoad: return "what is to be loaded is not valid";
    case WriteResult::NoRoom: return "there is no room for the memory asked for";
    }
    return "done";
}

} // namespace KnxDevice
