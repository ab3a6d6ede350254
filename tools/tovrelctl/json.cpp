#include "tovrelctl/json.h"

#include "interfaces/c_handles.h"

#include <new>

namespace tovrelctl {

namespace {

constexpr std::size_t INDENTATION = 4;

} // namespace

Json owned(json_t *value)
{
    if (value == nullptr) {
        throw std::bad_alloc();
    }
    return Json(value);
}

Json share(json_t *value)
{
    return Json(json_incref(value));
}

Json textValue(const std::string &text)
{
    return owned(json_stringn(text.data(), text.size()));
}

void put(json_t *object, const char *name, Json value)
{
    // json_object_set_new() takes the reference over even when it fails
    if (json_object_set_new(object, name, value.release()) != 0) {
        throw std::bad_alloc();
    }
}

void append(json_t *array, Json value)
{
    if (json_array_append_new(array, value.release()) != 0) {
        throw std::bad_alloc();
    }
}

std::string textOf(const json_t *object, const char *name)
{
    const json_t *const value = json_object_get(object, name);
    if (!json_is_string(value)) {
        return {};
    }
    return {json_string_value(value), json_string_length(value)};
}

std::vector<const json_t *> valuesOf(const json_t *array)
{
    std::vector<const json_t *> values;
    for (std::size_t index = 0; index < json_array_size(array); ++index) {
        values.push_back(json_array_get(array, index));
    }
    return values;
}

bool isTrue(const json_t *object, const char *name)
{
    return json_is_true(json_object_get(object, name));
}

std::string plainText(const json_t *value)
{
    if (json_is_string(value)) {
        return {json_string_value(value), json_string_length(value)};
    }
    return dump(value, false);
}

std::string dump(const json_t *value, bool pretty)
{
    const std::size_t layout = pretty ? JSON_INDENT(INDENTATION) : JSON_COMPACT;
    const tovrel::MallocText text(json_dumps(value, JSON_ENCODE_ANY | layout));
    if (!text) {
        throw std::bad_alloc();
    }
    return text.get();
}

} // namespace tovrelctl
