#include "event/core/expression.h"

#include "event/core/declaration.h"
#include "event/core/value.h"

#include <norq/event_types.h>

#include <algorithm>

namespace norq::event {
namespace {

/**
 * Appends a text as the content of an attribute. Control characters that XML 1.0 cannot hold are
 * shown as U+FFFD.
 */
void appendEscaped(std::string &xml, std::string_view text)
{
    for (const char character : text) {
        switch (character) {
        case '&':
            xml += "&amp;";
            break;
        case '<':
            xml += "&lt;";
            break;
        case '>':
            xml += "&gt;";
            break;
        case '"':
            xml += "&quot;";
            break;
        case '\t':
            xml += "&#9;";
            break;
        case '\n':
            xml += "&#10;";
            break;
        case '\r':
            xml += "&#13;";
            break;
        default:
            if (static_cast<unsigned char>(character) < ' ') {
                xml += "\xEF\xBF\xBD";
            } else {
                xml += character;
            }
        }
    }
}

void appendAttribute(std::string &xml, const char *name, std::string_view value)
{
    xml.append(" ").append(name).append("=\"");
    appendEscaped(xml, value);
    xml += '"';
}

} // namespace

Status Expression::addKeyValue(std::string_view key, std::string_view value)
{
    if (find(Condition::Kind::KEY_VALUE, key) != nullptr) {
        return Status::failure(EVENT_ERROR_INVALID,
                               "the key '" + std::string(key) + "' has a value already");
    }
    if (value.size() > EVENT_MAX_SIZE || !isCleanText(value)) {
        return Status::failure(EVENT_ERROR_INVALID, "the value is too long or not valid UTF-8");
    }
    return add(Condition::Kind::KEY_VALUE, key, value);
}

Status Expression::setNameSpace(std::string_view key, std::string_view nameSpace)
{
    if (Status valid = checkName(nameSpace, "namespace"); !valid) {
        return valid;
    }
    if (Condition *former = find(Condition::Kind::NAME_SPACE, key)) {
        textBytes = textBytes - former->text.size() + nameSpace.size();
        former->text = nameSpace;
        return {};
    }
    return add(Condition::Kind::NAME_SPACE, key, nameSpace);
}

Status Expression::addAbsent(std::string_view key)
{
    if (find(Condition::Kind::ABSENT, key) != nullptr) {
        return {};
    }
    return add(Condition::Kind::ABSENT, key, {});
}

Status Expression::add(Condition::Kind kind, std::string_view key, std::string_view text)
{
    if (key.empty()) {
        return Status::failure(EVENT_ERROR_INVALID, "the key is empty");
    }
    if (Status valid = checkName(key, "key"); !valid) {
        return valid;
    }
    const std::size_t added = key.size() + text.size();
    if (all.size() >= EVENT_MAX_KEYS || textBytes + added > EVENT_MAX_SIZE) {
        return Status::failure(EVENT_ERROR_INVALID, "the expression is too large");
    }
    all.push_back({kind, std::string(key), std::string(text)});
    textBytes += added;
    return {};
}

Condition *Expression::find(Condition::Kind kind, std::string_view key)
{
    const auto found = std::find_if(all.begin(), all.end(), [&](const Condition &condition) {
        return condition.kind == kind && condition.key == key;
    });
    return found == all.end() ? nullptr : &*found;
}

std::size_t Expression::memorySize() const
{
    return sizeof(Expression) + textBytes + all.size() * sizeof(Condition);
}

std::string Expression::xml() const
{
    std::string xml = "<subscribe>";
    for (const Condition &condition : all) {
        switch (condition.kind) {
        case Condition::Kind::KEY_VALUE:
            xml += "<keyValue";
            appendAttribute(xml, "key", condition.key);
            appendAttribute(xml, "value", condition.text);
            break;
        case Condition::Kind::NAME_SPACE:
            xml += "<nameSpace";
            appendAttribute(xml, "key", condition.key);
            appendAttribute(xml, "nameSpace", condition.text);
            break;
        case Condition::Kind::ABSENT:
            xml += "<notKey";
            appendAttribute(xml, "key", condition.key);
            break;
        }
        xml += "/>";
    }
    return xml += "</subscribe>";
}

} // namespace norq::event
