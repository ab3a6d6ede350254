/**
 * Reading and appending D-Bus fields as the service's own types.
 *
 * The signature is made of the C++ types, so a variable cannot meet a field of another type: sd-bus
 * writes an int where the wire has a boolean, which would overwrite what stands beside a bool.
 */
#pragma once

#include <systemd/sd-bus.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>

namespace tovrel {

/** How a type travels: its signature and what sd-bus reads it into. Texts, booleans, integers. */
template <typename Field>
struct BusField;

template <>
struct BusField<std::string> {
    static constexpr char SIGNATURE = 's';
    using Wire = const char *;
    static Wire toWire(const std::string &value) { return value.c_str(); }
};

template <>
struct BusField<bool> {
    static constexpr char SIGNATURE = 'b';
    using Wire = int;
    static Wire toWire(bool value) { return value ? 1 : 0; }
};

template <>
struct BusField<std::int32_t> {
    static constexpr char SIGNATURE = 'i';
    using Wire = std::int32_t;
    static Wire toWire(std::int32_t value) { return value; }
};

/** Signature of fields one after the other, as a C text. */
template <typename... Fields>
inline constexpr std::array<char, sizeof...(Fields) + 1> FIELDS_SIGNATURE{
    BusField<Fields>::SIGNATURE..., '\0'};

/** Signature of one struct of fields, as a C text. */
template <typename... Fields>
inline constexpr std::array<char, sizeof...(Fields) + 3> STRUCT_SIGNATURE{
    '(', BusField<Fields>::SIGNATURE..., ')', '\0'};

namespace bus_fields {

template <typename... Fields>
int read(sd_bus_message *message, const char *signature, Fields &...fields)
{
    std::tuple<typename BusField<Fields>::Wire...> wire{};
    const int result = std::apply(
        [&](auto &...slots) { return sd_bus_message_read(message, signature, &slots...); }, wire);
    if (result > 0) {
        std::apply([&](auto... values) { ((fields = static_cast<Fields>(values)), ...); }, wire);
    }
    return result;
}

} // namespace bus_fields

/** Reads the next fields of a message. The sd-bus result; nothing is stored unless it is over 0. */
template <typename... Fields>
int readFields(sd_bus_message *message, Fields &...fields)
{
    return bus_fields::read(message, FIELDS_SIGNATURE<Fields...>.data(), fields...);
}

/** Reads the next struct of an array; 0 at its end. Otherwise as readFields(). */
template <typename... Fields>
int readStruct(sd_bus_message *message, Fields &...fields)
{
    return bus_fields::read(message, STRUCT_SIGNATURE<Fields...>.data(), fields...);
}

/**
 * Appends fields to a message. The sd-bus result: -EINVAL for a text that is not UTF-8 or has a
 * noncharacter (U+FDD0 and the like) in it.
 */
template <typename... Fields>
int appendFields(sd_bus_message *message, const Fields &...fields)
{
    return sd_bus_message_append(message, FIELDS_SIGNATURE<Fields...>.data(),
                                 BusField<Fields>::toWire(fields)...);
}

/** Appends a struct to an array. As appendFields(). */
template <typename... Fields>
int appendStruct(sd_bus_message *message, const Fields &...fields)
{
    return sd_bus_message_append(message, STRUCT_SIGNATURE<Fields...>.data(),
                                 BusField<Fields>::toWire(fields)...);
}

} // namespace tovrel
