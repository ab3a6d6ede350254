/** Replies that the bus would not carry. */
#include "core/reply_limit.h"

#include "unit/core/legacy_fixture.h"

namespace tovrel::test {

namespace {

using testing::ElementsAre;

const std::string &tooLong()
{
    static const std::string text(MOST_REPLY_BYTES + 1, 'a');
    return text;
}

TEST(ReplySize, IsTheSumOfAllTexts)
{
    ReplySize size;
    EXPECT_EQ(size.add({}), 0);
    EXPECT_EQ(size.add({"a", tooLong().substr(2)}), 0);
    EXPECT_EQ(size.add({""}), 0);
    EXPECT_EQ(size.add({"a"}), -EMSGSIZE);
    EXPECT_EQ(size.add({""}), -EMSGSIZE);
}

TEST_F(LegacyMethods, MoreItemsThanAReplyHoldsAreAnError)
{
    offerItems();
    items.setSubscription("0", "a", false, 0, false);
    items.setSubscription("1", tooLong().substr(1), false, 0, false);
    const std::string text =
        std::string("Error appending to reply message: ") + g_strerror(EMSGSIZE);
    EXPECT_EQ(getItems(), internalError(text));
    EXPECT_THAT(log.take(), ElementsAre(LogLine{256, "GetMQTTToEventConfig Error: " + text}));
}

TEST_F(LegacyMethods, MoreFiltersThanAReplyHoldsAreAnError)
{
    offerPublication();
    publication.setCustomTopicPrefix("a");
    publication.addEventFilter(EventFilterConfig(tooLong().substr(1).c_str(), 0, "none"));
    EXPECT_EQ(getPublication(), internalError("Error constructing reply"));
    EXPECT_THAT(log.take(), ElementsAre(LogLine{256, std::string("Error appending status code: ") +
                                                         g_strerror(EMSGSIZE)}));
}

TEST_F(LegacyMethods, SettingsThatNoReplyHoldsAreAnError)
{
    offerPublication();
    publication.setCustomTopicPrefix(tooLong());
    EXPECT_EQ(getPublication(), internalError("Error constructing reply"));
    EXPECT_THAT(log.take(), ElementsAre(LogLine{256, std::string("Error appending status code: ") +
                                                         g_strerror(EMSGSIZE)}));
}

} // namespace

} // namespace tovrel::test
