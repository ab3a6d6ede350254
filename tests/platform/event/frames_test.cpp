/** The frames of the event socket: round trips, and everything that is not one. */
#include "event/core/frame_buffer.h"
#include "event/core/frames.h"
#include "event/core/wire.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

namespace norq::event {
namespace {

SharedDeclaration sample()
{
    Declaration declaration(1);
    EXPECT_TRUE(declaration.addFixedKey("topic0", Value::ofText("Device")));
    EXPECT_TRUE(declaration.setNameSpace("topic0", "tns1"));
    EXPECT_TRUE(declaration.setNiceNames("topic0", "nice", "nicer"));
    EXPECT_TRUE(declaration.addFixedKey("i", Value::ofInteger(-1)));
    EXPECT_TRUE(declaration.addFixedKey("d", Value::ofNumber(0.1)));
    EXPECT_TRUE(declaration.addOpenKey("text", EVENT_VALUE_STRING));
    EXPECT_TRUE(declaration.addTag("text", "one"));
    EXPECT_TRUE(declaration.addTag("text", "two"));
    EXPECT_TRUE(declaration.addOpenKey("b", EVENT_VALUE_BOOLEAN));
    EXPECT_TRUE(declaration.addOpenKey("x", EVENT_VALUE_DOUBLE));
    EXPECT_TRUE(declaration.setProperty("text"));
    return std::make_shared<const Declaration>(declaration);
}

EventContent sampleContent()
{
    EventContent content;
    content.declaration = sample();
    content.time = -77;
    content.open = {Value::ofText("\xF0\x9F\x98\x80"), Value::ofBoolean(true),
                    Value::ofNumber(-1e-9)};
    return content;
}

/** The content of the only frame in a buffer. */
std::string contentOf(const std::string &buffer)
{
    return buffer.substr(LENGTH_SIZE);
}

bool same(const Declaration &left, const Declaration &right)
{
    return left.flags() == right.flags() && left.property() == right.property() &&
           left.textSize() == right.textSize() &&
           std::equal(left.keys().begin(), left.keys().end(), right.keys().begin(),
                      right.keys().end(), [](const DeclaredKey &a, const DeclaredKey &b) {
                          return a.name == b.name && a.type == b.type && a.fixed == b.fixed &&
                                 a.openPosition == b.openPosition && a.nameSpace == b.nameSpace &&
                                 a.niceName == b.niceName && a.tags == b.tags &&
                                 a.valueNiceName == b.valueNiceName;
                      });
}

TEST(Frames, ADefinitionIsReadAsItWasWritten)
{
    std::string buffer;
    appendDefine(buffer, 7, *sample());
    const auto frame = readDefine(contentOf(buffer));
    ASSERT_TRUE(frame);
    EXPECT_EQ(frame->slot, 7U);
    EXPECT_TRUE(same(*frame->declaration, *sample()));
}

TEST(Frames, AnEventIsReadAsItWasWritten)
{
    const std::string buffer = eventFrame(42, FLAG_KEPT, sampleContent());
    const auto frame = readEvent(std::string_view(buffer).substr(LENGTH_SIZE));
    ASSERT_TRUE(frame);
    EXPECT_EQ(frame->declaration, 42U);
    EXPECT_EQ(frame->flags, FLAG_KEPT);
    const auto content = readBody(frame->body, sample());
    ASSERT_TRUE(content);
    EXPECT_EQ(content->time, -77);
    EXPECT_EQ(content->open, sampleContent().open);
}

TEST(Frames, ADeliveryIsReadAsItWasWritten)
{
    std::string buffer;
    appendDelivery(buffer, 0, 3, {1, 5, 4096}, "body");
    const std::string content = contentOf(buffer);
    const auto frame = readDelivery(content);
    ASSERT_TRUE(frame);
    EXPECT_EQ(frame->slot, 3U);
    EXPECT_EQ(frame->subscriptions, (std::vector<std::uint32_t>{1, 5, 4096}));
    EXPECT_EQ(frame->body, "body");
}

TEST(Frames, AnIncompleteFrameIsRefusedWhereverItIsCut)
{
    std::string define;
    appendDefine(define, 7, *sample());
    std::string delivery;
    appendDelivery(delivery, 0, 3, {1, 5}, "");
    std::string body;
    writeBody(body, sampleContent());
    for (std::size_t size = 0; size < contentOf(define).size(); ++size) {
        EXPECT_FALSE(readDefine(contentOf(define).substr(0, size))) << size;
    }
    for (std::size_t size = 0; size < contentOf(delivery).size(); ++size) {
        EXPECT_FALSE(readDelivery(contentOf(delivery).substr(0, size))) << size;
    }
    std::vector<std::string_view> values;
    for (std::size_t size = 0; size < body.size(); ++size) {
        EXPECT_FALSE(readBody(body.substr(0, size), sample())) << size;
        EXPECT_FALSE(scanBody(std::string_view(body).substr(0, size), *sample(), values)) << size;
    }
}

TEST(Frames, WhatStandsBehindTheEndIsRefused)
{
    std::string define;
    appendDefine(define, 7, *sample());
    std::string body;
    writeBody(body, sampleContent());
    std::vector<std::string_view> values;
    EXPECT_TRUE(scanBody(body, *sample(), values));
    EXPECT_FALSE(readDefine(contentOf(define) + 'x'));
    EXPECT_FALSE(readBody(body + 'x', sample()));
    EXPECT_FALSE(scanBody(body + 'x', *sample(), values));
}

TEST(Frames, BytesThatNoValueHasAreRefused)
{
    const auto bodyWith = [](const std::string &text, std::uint8_t boolean, std::uint64_t bits) {
        std::string body;
        WireWriter writer(body);
        writer.number(std::int64_t{0});
        writer.text<std::uint32_t>(text);
        writer.number(boolean);
        writer.number(bits);
        return body;
    };
    std::vector<std::string_view> values;
    EXPECT_TRUE(scanBody(bodyWith("text", 1, 0), *sample(), values));
    EXPECT_FALSE(scanBody(bodyWith("\xff", 1, 0), *sample(), values));
    EXPECT_FALSE(scanBody(bodyWith(std::string("a\0b", 3), 1, 0), *sample(), values));
    EXPECT_FALSE(scanBody(bodyWith("text", 2, 0), *sample(), values));
    EXPECT_FALSE(scanBody(bodyWith("text", 1, 0x7ff0000000000000), *sample(), values)); // infinite
    EXPECT_FALSE(scanBody(bodyWith("text", 1, 0x7ff8000000000000), *sample(), values)); // NaN
    EXPECT_FALSE(scanBody(bodyWith(std::string(EVENT_MAX_SIZE, 'x'), 1, 0), *sample(), values));
}

TEST(Frames, AChangedByteNeverDoesMoreThanChangeTheMeaning)
{
    std::string define;
    appendDefine(define, 7, *sample());
    std::string body;
    writeBody(body, sampleContent());
    std::mt19937 random(1); // NOLINT(bugprone-random-generator-seed): the same cases every time
    std::uniform_int_distribution<int> anyByte(0, 255);
    const SharedDeclaration declaration = sample();
    std::vector<std::string_view> values;
    int readable = 0;
    for (int round = 0; round < 20000; ++round) {
        std::string changed = contentOf(define);
        changed[random() % changed.size()] = static_cast<char>(anyByte(random));
        if (const auto frame = readDefine(changed)) {
            EXPECT_TRUE(frame->declaration->checkComplete());
            EXPECT_LT(frame->slot, MAX_SLOTS);
            ++readable;
        }
        std::string changedBody = body;
        changedBody[random() % changedBody.size()] = static_cast<char>(anyByte(random));
        if (scanBody(changedBody, *declaration, values)) {
            EXPECT_TRUE(readBody(changedBody, declaration));
        }
    }
    EXPECT_GT(readable, 0);
}

TEST(Frames, OtherKindsAndUnknownFlagsAreRefused)
{
    std::string buffer = eventFrame(1, 0, sampleContent());
    EXPECT_FALSE(readDelivery(contentOf(buffer)));
    EXPECT_FALSE(readDefine(contentOf(buffer)));
    buffer[LENGTH_SIZE + 1] = 2;
    EXPECT_FALSE(readEvent(std::string_view(buffer).substr(LENGTH_SIZE)));
    EXPECT_EQ(kindOf(""), 0);
}

/** Feeds bytes in pieces of a size and collects the frames. */
std::vector<std::string> cut(FrameBuffer &buffer, std::string_view bytes, std::size_t piece)
{
    std::vector<std::string> frames;
    while (!bytes.empty()) {
        const auto room = buffer.room();
        const std::size_t count = std::min({piece, bytes.size(), room.size()});
        std::copy_n(bytes.begin(), count, room.begin());
        buffer.filled(count);
        bytes.remove_prefix(count);
        while (const auto frame = buffer.next()) {
            frames.emplace_back(*frame);
        }
        buffer.releaseIfEmpty();
    }
    return frames;
}

std::string framed(const std::string &content)
{
    std::string buffer;
    WireWriter(buffer).text<std::uint32_t>(content);
    return buffer;
}

TEST(FrameBuffer, TheStreamIsCutIntoTheSameFramesInWhateverPiecesItArrives)
{
    const std::vector<std::string> frames = {"a", std::string(300, 'b'), std::string(200000, 'c'),
                                             "d"};
    std::string stream;
    for (const std::string &frame : frames) {
        stream += framed(frame);
    }
    for (const std::size_t piece :
         {std::size_t{1}, std::size_t{7}, std::size_t{4096}, stream.size()}) {
        FrameBuffer buffer(200000);
        EXPECT_EQ(cut(buffer, stream, piece), frames) << piece;
        EXPECT_FALSE(buffer.malformed());
    }
}

TEST(FrameBuffer, AnEmptyOrOverlongFrameEndsTheStream)
{
    FrameBuffer empty(100);
    EXPECT_TRUE(cut(empty, framed(""), 100).empty());
    EXPECT_TRUE(empty.malformed());
    FrameBuffer exact(100);
    EXPECT_EQ(cut(exact, framed(std::string(100, 'x')), 1000).size(), 1U);
    EXPECT_FALSE(exact.malformed());
    FrameBuffer overlong(100);
    EXPECT_TRUE(cut(overlong, framed(std::string(101, 'x')), 1000).empty());
    EXPECT_TRUE(overlong.malformed());
    FrameBuffer huge(100);
    EXPECT_TRUE(cut(huge, "\xff\xff\xff\xff", 4).empty()); // refused before anything is reserved
    EXPECT_TRUE(huge.malformed());
}

} // namespace
} // namespace norq::event
