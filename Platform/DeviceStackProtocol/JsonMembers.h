// Reads the members of a JSON object; the first one that is missing or wrong is named. Only for this folder.
#pragma once

#include "DeviceStackProtocol/Messages.h"

#include <boost/json.hpp>

#include <limits>

namespace DeviceStack {

class JsonMembers {
public:
    explicit JsonMembers(const boost::json::object& object) : m_object(object) {}

    bool Failed() const { return !m_error.empty(); }

    /// What is wrong, for people; "" when nothing is.
    const std::string& GetError() const { return m_error; }

    void Fail(std::string error) {
        if (m_error.empty())
            m_error = std::move(error);
    }

    const boost::json::value* Find(std::string_view name) const {
        return m_object.if_contains(boost::json::string_view(name.data(), name.size()));
    }

    void Text(std::string_view name, std::string& text) {
        if (const auto* value = Required(name))
            TakeText(name, *value, text);
    }

    void OptionalText(std::string_view name, std::string& text) {
        if (const auto* value = Find(name))
            TakeText(name, *value, text);
    }

    void Boolean(std::string_view name, bool& flag) {
        if (const auto* value = Required(name))
            TakeBoolean(name, *value, flag);
    }

    void OptionalBoolean(std::string_view name, bool& flag) {
        if (const auto* value = Find(name))
            TakeBoolean(name, *value, flag);
    }

    /// A whole number from 0 to what the type holds.
    template <typename Number>
    void Unsigned(std::string_view name, Number& number) {
        if (const auto* value = Required(name))
            TakeUnsigned(name, *value, number);
    }

    void OptionalUnsigned(std::string_view name, std::optional<std::uint64_t>& number) {
        if (const auto* value = Find(name)) {
            std::uint64_t taken = 0;
            TakeUnsigned(name, *value, taken);
            number = taken;
        }
    }

    /// An object; null after a failure.
    const boost::json::object* Object(std::string_view name) {
        const auto* value = Required(name);
        if (!value)
            return nullptr;
        if (!value->is_object())
            Fail("member '" + std::string(name) + "' must be an object");
        return value->if_object();
    }

private:
    const boost::json::value* Required(std::string_view name) {
        const auto* value = Find(name);
        if (!value)
            Fail("member '" + std::string(name) + "' is missing");
        return value;
    }

    void TakeText(std::string_view name, const boost::json::value& value, std::string& text) {
        if (const auto* found = value.if_string())
            text.assign(found->data(), found->size());
        else
            Fail("member '" + std::string(name) + "' must be a text");
    }

    void TakeBoolean(std::string_view name, const boost::json::value& value, bool& flag) {
        if (const auto* found = value.if_bool())
            flag = *found;
        else
            Fail("member '" + std::string(name) + "' must be true or false");
    }

    template <typename Number>
    void TakeUnsigned(std::string_view name, const boost::json::value& value, Number& number) {
        constexpr std::uint64_t max = std::numeric_limits<Number>::max();
        std::uint64_t found = 0;
        if (const auto* positive = value.if_int64(); positive && *positive >= 0)
            found = static_cast<std::uint64_t>(*positive);
        else if (const auto* large = value.if_uint64())
            found = *large;
        else
            return Fail("member '" + std::string(name) + "' must be a whole number from 0 to " +
                        std::to_string(max));
        if (found > max)
            return Fail("member '" + std::string(name) + "' is above " + std::to_string(max));
        number = static_cast<Number>(found);
    }

    const boost::json::object& m_object;
    std::string m_error;
};

} // namespace DeviceStack
