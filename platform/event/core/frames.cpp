#include "event/core/frames.h"

#include "event/core/wire.h"

#include <cstring>
#include <memory>

namespace norq::event {
namespace {

/** Appends a frame: reserves its length field at the start, fills it in at the end. */
class FrameScope {
public:
    FrameScope(std::string &target, FrameKind kind)
        : buffer(target), start(target.size()), fields(target)
    {
        fields.number(std::uint32_t{0});
        fields.number(static_cast<std::uint8_t>(kind));
    }
    ~FrameScope()
    {
        const auto length = static_cast<std::uint32_t>(buffer.size() - start - LENGTH_SIZE);
        std::memcpy(buffer.data() + start, &length, sizeof length);
    }
    FrameScope(const FrameScope &) = delete;
    FrameScope &operator=(const FrameScope &) = delete;

    WireWriter *operator->() { return &fields; }

private:
    std::string &buffer;
    std::size_t start;
    WireWriter fields;
};

void writeKey(FrameScope &frame, const DeclaredKey &key)
{
    frame->text<std::uint16_t>(key.name);
    frame->number(static_cast<std::uint8_t>(key.type));
    frame->number(static_cast<std::uint8_t>(key.fixed.has_value()));
    if (key.fixed) {
        frame->text<std::uint32_t>(key.fixed->text());
    }
    frame->text<std::uint16_t>(key.nameSpace);
    frame->text<std::uint16_t>(key.niceName);
    frame->text<std::uint16_t>(key.valueNiceName);
    frame->number(static_cast<std::uint8_t>(key.tags.size()));
    for (const std::string &tag : key.tags) {
        frame->text<std::uint16_t>(tag);
    }
}

bool addKey(WireReader &reader, Declaration &declaration, std::string_view name)
{
    const auto typeNumber = reader.number<std::uint8_t>();
    if (!isType(typeNumber)) {
        return false;
    }
    const auto type = static_cast<event_value_type>(typeNumber);
    if (reader.number<std::uint8_t>() == 0) {
        return static_cast<bool>(declaration.addOpenKey(name, type));
    }
    auto value = Value::parse(type, reader.text<std::uint32_t>());
    return value && declaration.addFixedKey(name, std::move(*value));
}

bool readKey(WireReader &reader, Declaration &declaration)
{
    const auto name = reader.text<std::uint16_t>();
    if (!addKey(reader, declaration, name)) {
        return false;
    }
    const auto nameSpace = reader.text<std::uint16_t>();
    const auto niceName = reader.text<std::uint16_t>();
    const auto valueNiceName = reader.text<std::uint16_t>();
    if (!declaration.setNameSpace(name, nameSpace) ||
        !declaration.setNiceNames(name, niceName, valueNiceName)) {
        return false;
    }
    for (auto tags = reader.number<std::uint8_t>(); tags > 0; --tags) {
        if (!declaration.addTag(name, reader.text<std::uint16_t>())) {
            return false;
        }
    }
    return !reader.failed();
}

} // namespace

std::uint8_t kindOf(std::string_view content)
{
    return WireReader(content).number<std::uint8_t>();
}

std::string eventFrame(std::uint32_t declaration, std::uint8_t flags, const EventContent &content)
{
    std::string buffer;
    {
        FrameScope frame(buffer, FrameKind::EVENT);
        frame->number(flags);
        frame->number(declaration);
        writeBody(buffer, content);
    }
    return buffer;
}

std::optional<EventFrame> readEvent(std::string_view content)
{
    WireReader reader(content);
    EventFrame frame;
    const auto kind = reader.number<std::uint8_t>();
    frame.flags = reader.number<std::uint8_t>();
    frame.declaration = reader.number<std::uint32_t>();
    frame.body = reader.remaining();
    const bool known = kind == static_cast<std::uint8_t>(FrameKind::EVENT);
    return !known || reader.failed() || frame.flags > FLAG_KEPT ? std::nullopt
                                                                : std::optional(frame);
}

void appendDefine(std::string &buffer, std::uint32_t slot, const Declaration &declaration)
{
    FrameScope frame(buffer, FrameKind::DEFINE);
    frame->number(slot);
    frame->number(static_cast<std::uint8_t>(declaration.flags()));
    const auto property = declaration.property();
    frame->number(static_cast<std::uint16_t>(property ? *property + 1 : 0));
    frame->number(static_cast<std::uint16_t>(declaration.keys().size()));
    for (const DeclaredKey &key : declaration.keys()) {
        writeKey(frame, key);
    }
}

std::optional<DefineFrame> readDefine(std::string_view content)
{
    WireReader reader(content);
    const auto kind = reader.number<std::uint8_t>();
    const auto slot = reader.number<std::uint32_t>();
    const auto flags = reader.number<std::uint8_t>();
    const std::size_t property = reader.number<std::uint16_t>();
    const auto count = reader.number<std::uint16_t>();
    if (kind != static_cast<std::uint8_t>(FrameKind::DEFINE) || slot >= MAX_SLOTS ||
        !Declaration::areFlags(flags)) {
        return std::nullopt;
    }
    auto declaration = std::make_shared<Declaration>(flags);
    for (std::size_t index = 0; index < count; ++index) {
        if (!readKey(reader, *declaration)) {
            return std::nullopt;
        }
    }
    if (!reader.finished() || !declaration->checkComplete() || property > count) {
        return std::nullopt;
    }
    if (property > 0 && !declaration->setProperty(declaration->keys()[property - 1].name)) {
        return std::nullopt;
    }
    return DefineFrame{slot, std::move(declaration)};
}

void appendForget(std::string &buffer)
{
    const FrameScope frame(buffer, FrameKind::FORGET);
}

void appendDelivery(std::string &buffer, std::uint8_t flags, std::uint32_t slot,
                    const std::vector<std::uint32_t> &subscriptions, std::string_view body)
{
    FrameScope frame(buffer, FrameKind::DELIVERY);
    frame->number(flags);
    frame->number(slot);
    frame->number(static_cast<std::uint16_t>(subscriptions.size()));
    for (const std::uint32_t subscription : subscriptions) {
        frame->number(subscription);
    }
    frame->bytes(body);
}

std::optional<DeliveryFrame> readDelivery(std::string_view content)
{
    WireReader reader(content);
    DeliveryFrame frame;
    const auto kind = reader.number<std::uint8_t>();
    frame.flags = reader.number<std::uint8_t>();
    frame.slot = reader.number<std::uint32_t>();
    const auto count = reader.number<std::uint16_t>();
    if (kind != static_cast<std::uint8_t>(FrameKind::DELIVERY) || count > EVENT_MAX_IDS) {
        return std::nullopt;
    }
    frame.subscriptions.reserve(count);
    for (std::size_t index = 0; index < count; ++index) {
        frame.subscriptions.push_back(reader.number<std::uint32_t>());
    }
    frame.body = reader.remaining();
    return reader.failed() ? std::nullopt : std::optional(std::move(frame));
}

} // namespace norq::event
