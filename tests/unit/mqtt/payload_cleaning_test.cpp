#include "fakes/call_record.h"
#include "mqtt/message_callback.h"
#include "unit/mqtt/case_name.h"

#include <gtest/gtest.h>

#include <sys/mman.h>
#include <unistd.h>

#include <cstring>
#include <stdexcept>
#include <string>

namespace tovrel::test {

namespace {

/** Bytes whose last one is the last one that may be read: the page behind them is forbidden. */
class FencedBytes {
public:
    explicit FencedBytes(const std::string &bytes)
        : page(static_cast<std::size_t>(sysconf(_SC_PAGESIZE))),
          mapped((bytes.size() / page + 2) * page)
    {
        void *const memory =
            mmap(nullptr, mapped, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (memory == MAP_FAILED) {
            throw std::runtime_error("cannot map memory");
        }
        start = static_cast<char *>(memory);
        char *const fence = start + mapped - page;
        content = fence - bytes.size();
        std::memcpy(content, bytes.data(), bytes.size());
        if (mprotect(fence, page, PROT_NONE) != 0) {
            throw std::runtime_error("cannot protect memory");
        }
    }
    FencedBytes(const FencedBytes &) = delete;
    FencedBytes &operator=(const FencedBytes &) = delete;
    ~FencedBytes() { munmap(start, mapped); }

    const char *data() const { return content; }

private:
    std::size_t page;
    std::size_t mapped;
    char *start = nullptr;
    char *content = nullptr;
};

std::string repeated(const std::string &text, int times)
{
    std::string result;
    for (int count = 0; count < times; ++count) {
        result += text;
    }
    return result;
}

std::string ascii(std::size_t length)
{
    return std::string(length, 'x');
}

const std::string TWO_BYTES = "\xC3\xA5";
const std::string THREE_BYTES = "\xE2\x82\xAC";
const std::string FOUR_BYTES = "\xF0\x9F\x98\x80";
const std::string NUL(1, '\0');

struct PayloadCase : NamedCase {
    std::string payload;
    PayloadState state;
    std::string expected;
};

class Payload : public testing::TestWithParam<PayloadCase> {
protected:
    void SetUp() override { resetCalls(); }
};

PayloadCase text(const char *name, const std::string &payload, const std::string &expected)
{
    return {{name}, payload, PayloadState::TEXT, expected};
}

PayloadCase whole(const char *name, const std::string &payload)
{
    return text(name, payload, payload);
}

PayloadCase binary(const char *name, const std::string &payload)
{
    return {{name}, payload, PayloadState::NOT_UTF8, ""};
}

} // namespace

TEST_P(Payload, IsCleanedWithoutReadingBeyondItsEnd)
{
    const FencedBytes bytes(GetParam().payload);
    const CleanedPayload cleaned =
        cleanPayload(bytes.data(), static_cast<int>(GetParam().payload.size()));
    EXPECT_EQ(cleaned.state, GetParam().state);
    EXPECT_EQ(cleaned.text, GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Whole, Payload,
    testing::Values(whole("Empty", ""), whole("OneByte", "x"), whole("At50Bytes", ascii(50)),
                    whole("At1024Characters", ascii(1024)),
                    whole("TwoBytesEndAtByte50", ascii(48) + TWO_BYTES + "y"),
                    whole("TwoBytesBeginAfterByte50", ascii(50) + TWO_BYTES),
                    whole("FourBytesEndAtByte50", ascii(46) + FOUR_BYTES + "y"),
                    whole("LongestTextThatIsKept", TWO_BYTES + repeated(FOUR_BYTES, 1023))),
    CaseName());

INSTANTIATE_TEST_SUITE_P(
    Cut, Payload,
    testing::Values(text("At1025Characters", ascii(1025), ascii(1024)),
                    text("At5000Bytes", ascii(5000), ascii(1024)),
                    text("TwoByteCharacters", repeated(TWO_BYTES, 1500), repeated(TWO_BYTES, 1024)),
                    text("ThreeByteCharacters", ascii(2) + repeated(THREE_BYTES, 1300),
                         ascii(2) + repeated(THREE_BYTES, 1022)),
                    text("CharacterCutByByte4096AfterTheLimit",
                         TWO_BYTES + repeated(FOUR_BYTES, 1024),
                         TWO_BYTES + repeated(FOUR_BYTES, 1023)),
                    text("FourByteCharacterAcrossByte4096", ascii(2) + repeated(FOUR_BYTES, 1024),
                         ascii(2) + repeated(FOUR_BYTES, 1022)),
                    text("InvalidByteAt100", ascii(100) + "\xFF" + ascii(100), ascii(100)),
                    text("InvalidByteAt50", ascii(50) + "\xFF", ascii(50)),
                    text("NulAt50", ascii(50) + NUL + "y", ascii(50)),
                    text("NulAt100", ascii(100) + NUL + ascii(10), ascii(100)),
                    text("UnfinishedCharacterAtTheEnd", ascii(60) + "\xE2\x82", ascii(60))),
    CaseName());

INSTANTIATE_TEST_SUITE_P(
    Binary, Payload,
    testing::Values(binary("InvalidFirstByte", "\xFFx"),
                    binary("InvalidByteAt49", ascii(49) + "\xFF"),
                    binary("TwoByteCharacterAcrossByte50", ascii(49) + TWO_BYTES + ascii(10)),
                    binary("FourByteCharacterAcrossByte50", ascii(47) + FOUR_BYTES + ascii(10)),
                    binary("ThreeByteCharactersThatByte50Cuts", repeated(THREE_BYTES, 20)),
                    binary("FourByteCharactersThatByte50Cuts", repeated(FOUR_BYTES, 20)),
                    binary("UnfinishedShortPayload", "ab\xC3"), binary("NulFirst", NUL),
                    binary("NulWithin50", "ab" + NUL + "cd"), binary("NulAt49", ascii(49) + NUL),
                    binary("Surrogate", "\xED\xA0\x80"), binary("Overlong", "\xC0\xAF"),
                    binary("AboveUnicode", "\xF4\x90\x80\x80")),
    CaseName());

TEST(PayloadCleaning, ANegativeLengthMeansNoPayload)
{
    const CleanedPayload cleaned = cleanPayload("text", -1);
    EXPECT_EQ(cleaned.state, PayloadState::ABSENT);
    EXPECT_EQ(cleaned.text, "");
}

TEST(PayloadCleaning, ANullPayloadIsAbsentWhateverItsLength)
{
    EXPECT_EQ(cleanPayload(nullptr, 0).state, PayloadState::ABSENT);
    EXPECT_EQ(cleanPayload(nullptr, 5).state, PayloadState::ABSENT);
}

TEST(PayloadCleaning, ANegativeCountOfCharactersIsReported)
{
    resetCalls();
    failCall("g_utf8_pointer_to_offset", 1);
    EXPECT_EQ(cleanPayload("text", 4).state, PayloadState::UNCOUNTABLE);
}

TEST(PayloadCleaning, AFailureToCutIsReported)
{
    resetCalls();
    failCall("g_utf8_substring", 1);
    const CleanedPayload cleaned = cleanPayload("text", 4);
    EXPECT_EQ(cleaned.state, PayloadState::NOT_CUT);
    EXPECT_EQ(cleaned.text, "");
}

} // namespace tovrel::test
