#include "event/core/declaration.h"

#include <norq/event_producer.h>

#include <algorithm>
#include <utility>

namespace norq::event {
namespace {

Status unknownKey(std::string_view key)
{
    return Status::failure(EVENT_ERROR_UNKNOWN_KEY,
                           "the declaration has no key '" + std::string(key) + "'");
}

} // namespace

Status checkName(std::string_view name, const char *what)
{
    if (name.size() > EVENT_MAX_NAME) {
        return Status::failure(EVENT_ERROR_INVALID, std::string("the ") + what + " is too long");
    }
    if (!isCleanText(name)) {
        return Status::failure(EVENT_ERROR_INVALID,
                               std::string("the ") + what + " is not valid UTF-8");
    }
    return {};
}

bool Declaration::areFlags(std::uint64_t flags)
{
    return (flags & ~static_cast<std::uint64_t>(EVENT_DECLARATION_INTERNAL)) == 0;
}

Status Declaration::addOpenKey(std::string_view name, event_value_type type)
{
    if (!isType(static_cast<std::uint64_t>(type))) {
        return Status::failure(EVENT_ERROR_INVALID, "the key has no known type");
    }
    DeclaredKey key;
    key.type = type;
    key.openPosition = static_cast<std::uint32_t>(open.size());
    if (Status added = addKey(name, std::move(key)); !added) {
        return added;
    }
    open.push_back(declaredKeys.size() - 1);
    return {};
}

Status Declaration::addFixedKey(std::string_view name, Value value)
{
    const std::size_t size = value.size();
    DeclaredKey key;
    key.type = value.type();
    key.fixed = std::move(value);
    if (Status added = addKey(name, std::move(key)); !added) {
        return added;
    }
    textBytes += size;
    return {};
}

Status Declaration::addKey(std::string_view name, DeclaredKey key)
{
    if (name.empty()) {
        return Status::failure(EVENT_ERROR_INVALID, "the key is empty");
    }
    if (Status valid = checkName(name, "key"); !valid) {
        return valid;
    }
    if (declaredKeys.size() >= EVENT_MAX_KEYS) {
        return Status::failure(EVENT_ERROR_INVALID, "the declaration has too many keys");
    }
    key.name = name;
    if (!indexes.try_emplace(key.name, declaredKeys.size()).second) {
        return Status::failure(EVENT_ERROR_INVALID, "the key '" + key.name + "' is there already");
    }
    declaredKeys.push_back(std::move(key));
    textBytes += name.size();
    return {};
}

Status Declaration::setNameSpace(std::string_view key, std::string_view nameSpace)
{
    DeclaredKey *declared = keyNamed(key);
    if (declared == nullptr) {
        return unknownKey(key);
    }
    if (Status valid = checkName(nameSpace, "namespace"); !valid) {
        return valid;
    }
    replaceText(declared->nameSpace, nameSpace);
    return {};
}

Status Declaration::setNiceNames(std::string_view key, std::string_view name,
                                 std::string_view valueName)
{
    DeclaredKey *declared = keyNamed(key);
    if (declared == nullptr) {
        return unknownKey(key);
    }
    for (const std::string_view text : {name, valueName}) {
        if (Status valid = checkName(text, "nice name"); !valid) {
            return valid;
        }
    }
    replaceText(declared->niceName, name);
    replaceText(declared->valueNiceName, valueName);
    return {};
}

Status Declaration::addTag(std::string_view key, std::string_view tag)
{
    DeclaredKey *declared = keyNamed(key);
    if (declared == nullptr) {
        return unknownKey(key);
    }
    if (tag.empty()) {
        return Status::failure(EVENT_ERROR_INVALID, "the tag is empty");
    }
    if (Status valid = checkName(tag, "tag"); !valid) {
        return valid;
    }
    std::vector<std::string> &tags = declared->tags;
    if (std::find(tags.begin(), tags.end(), tag) != tags.end()) {
        return {};
    }
    if (tags.size() >= EVENT_MAX_TAGS) {
        return Status::failure(EVENT_ERROR_INVALID, "the key has too many tags");
    }
    tags.emplace_back(tag);
    textBytes += tag.size();
    ++tagCount;
    return {};
}

Status Declaration::setProperty(std::string_view key)
{
    const auto index = find(key);
    if (!index) {
        return unknownKey(key);
    }
    if (propertyKey && propertyKey != index) {
        return Status::failure(EVENT_ERROR_INVALID, "another key is the property key already");
    }
    propertyKey = index;
    return {};
}

Status Declaration::checkComplete() const
{
    if (declaredKeys.empty()) {
        return Status::failure(EVENT_ERROR_INVALID, "the declaration has no key");
    }
    if (textBytes > EVENT_MAX_SIZE) {
        return Status::failure(EVENT_ERROR_TOO_LARGE, "the texts of the declaration are too large");
    }
    return {};
}

std::optional<std::size_t> Declaration::find(std::string_view name) const
{
    const auto found = indexes.find(std::string(name));
    return found == indexes.end() ? std::nullopt : std::optional(found->second);
}

std::size_t Declaration::memorySize() const
{
    // each name is held twice, here and in the index
    return sizeof(Declaration) + 2 * textBytes + tagCount * sizeof(std::string) +
           declaredKeys.size() * (sizeof(DeclaredKey) + 2 * sizeof(std::string));
}

DeclaredKey *Declaration::keyNamed(std::string_view name)
{
    const auto index = find(name);
    return index ? &declaredKeys[*index] : nullptr;
}

void Declaration::replaceText(std::string &text, std::string_view replacement)
{
    textBytes = textBytes - text.size() + replacement.size();
    text = replacement;
}

} // namespace norq::event
