// One property of an interface object.
#pragma once

#include "KnxStack/BinaryData.h"

namespace KnxStack {

/// A property of an interface object. Owned by the stack. Any thread.
class IInterfaceObjectProperty {
public:
    virtual ~IInterfaceObjectProperty() = default;

    /// 1 shows the property to the bus, 0 hides it. A property is hidden when it was created.
    virtual void SetActive(int active) = 0;

    /// All elements one after the other, as on the bus; empty when nothing was written yet.
    virtual BinaryData GetValue() const = 0;

    /// Replaces all elements. A value of another size than data type and number of elements give changes
    /// nothing.
    virtual void SetValue(const BinaryData& value) = 0;
};

} // namespace KnxStack
