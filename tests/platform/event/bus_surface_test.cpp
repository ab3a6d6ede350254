/** What the service shows on the bus. */
#include "event_handles.h"
#include "event_service_fixture.h"
#include "raw_client.h"

#include <gtest/gtest.h>

#include <fstream>
#include <set>
#include <sstream>
#include <string>

namespace event_test {
namespace {

using norq::event::BUS_INTERFACE;
using norq::event::BUS_NAME;
using norq::event::BUS_PATH;

using BusSurface = EventServiceTest;

std::string callForText(RawClient &client, const char *interface, const char *method)
{
    norq::event::BusMessage answer;
    const char *text = nullptr;
    EXPECT_GE(sd_bus_call_method(client.bus.get(), BUS_NAME, BUS_PATH, interface, method, nullptr,
                                 norq::event::Out(answer), ""),
              0);
    EXPECT_GE(sd_bus_message_read(answer.get(), "s", &text), 0);
    return text;
}

/** Collects the methods of the service's interface from a description in XML. */
class MethodReader {
public:
    /** Methods with their arguments as "Method name:type:direction ...". */
    static std::set<std::string> read(const std::string &xml)
    {
        MethodReader reader;
        const GMarkupParser parser = {onStart, onEnd, nullptr, nullptr, nullptr};
        GMarkupParseContext *context =
            g_markup_parse_context_new(&parser, GMarkupParseFlags{}, &reader, nullptr);
        EXPECT_TRUE(g_markup_parse_context_parse(context, xml.c_str(),
                                                 static_cast<gssize>(xml.size()), nullptr));
        g_markup_parse_context_free(context);
        return reader.methods;
    }

private:
    static std::string attribute(const gchar **names, const gchar **values, const char *wanted)
    {
        for (; *names != nullptr; ++names, ++values) {
            if (std::string(*names) == wanted) {
                return *values;
            }
        }
        return "";
    }

    static void onStart(GMarkupParseContext * /*context*/, const gchar *element,
                        const gchar **names, const gchar **values, gpointer self,
                        GError ** /*error*/)
    {
        auto *reader = static_cast<MethodReader *>(self);
        const std::string name = attribute(names, values, "name");
        if (std::string(element) == "interface") {
            reader->inside = name == BUS_INTERFACE;
        } else if (std::string(element) == "method") {
            reader->method = name;
        } else if (std::string(element) == "arg") {
            reader->method += " " + name + ":" + attribute(names, values, "type") + ":" +
                              attribute(names, values, "direction");
        }
    }

    static void onEnd(GMarkupParseContext * /*context*/, const gchar *element, gpointer self,
                      GError ** /*error*/)
    {
        auto *reader = static_cast<MethodReader *>(self);
        if (reader->inside && std::string(element) == "method") {
            reader->methods.insert(reader->method);
        }
    }

    bool inside = false;
    std::string method;
    std::set<std::string> methods;
};

TEST_F(BusSurface, TheIntrospectionIsWhatTheInstalledDescriptionSays)
{
    RawClient client;
    std::ifstream file(INTERFACE_XML);
    std::stringstream described;
    described << file.rdbuf();
    const auto live = MethodReader::read(
        callForText(client, "org.freedesktop.DBus.Introspectable", "Introspect"));
    EXPECT_EQ(live.size(), 7U);
    EXPECT_EQ(live, MethodReader::read(described.str()));
}

TEST_F(BusSurface, DeclarationsAreListedAsJson)
{
    RawClient client;
    EXPECT_EQ(callForText(client, BUS_INTERFACE, "ListDeclarations"), "[]");
    const ProducerPtr producer = newProducer("list \"me\"");
    const DeclarationPtr declaration(event_declaration_new(EVENT_DECLARATION_INTERNAL, nullptr));
    event_declaration_t *raw = declaration.get();
    event_declaration_add_key_value(raw, "topic0", event_value_string("D\xc3\xa9vice"), nullptr);
    event_declaration_set_name_space(raw, "topic0", "tns1");
    event_declaration_set_nice_names(raw, "topic0", "Name", "Value");
    event_declaration_add_key_value(raw, "b", event_value_boolean(1), nullptr);
    event_declaration_add_key_value(raw, "i", event_value_int(-3), nullptr);
    event_declaration_add_key_value(raw, "d", event_value_double(0.5), nullptr);
    event_declaration_add_key(raw, "state", EVENT_VALUE_BOOLEAN, nullptr);
    event_declaration_add_key_tag(raw, "state", "onvif-data");
    event_declaration_set_property(raw, "state", 0, nullptr);
    const int id = event_producer_declare(producer.get(), raw);
    const auto expected = [](const std::string &held) {
        return R"([{"client":"list \"me\"","id":0,"internal":true,"property":true,"held":)" + held +
               R"(,"keys":[{"key":"topic0","type":"string","state":false,"value":"D)"
               "\xc3\xa9"
               R"(vice","namespace":"tns1","niceName":"Name","valueNiceName":"Value"},)"
               R"({"key":"b","type":"boolean","state":false,"value":true},)"
               R"({"key":"i","type":"int","state":false,"value":-3},)"
               R"({"key":"d","type":"double","state":false,"value":0.5},)"
               R"({"key":"state","type":"boolean","state":true,"tags":["onvif-data"]}]}])";
    };
    EXPECT_EQ(callForText(client, BUS_INTERFACE, "ListDeclarations"), expected("false"));
    const EventPtr event(event_producer_prepare_event(producer.get(), id, 0, nullptr));
    event_set_value(event.get(), "state", event_value_boolean(1), nullptr);
    ASSERT_TRUE(event_producer_send_event(producer.get(), event.get(), nullptr));
    EXPECT_TRUE(test_support::waitUntil([&] {
        return callForText(client, BUS_INTERFACE, "ListDeclarations") == expected("true");
    }));
    event_producer_undeclare(producer.get(), id);
    EXPECT_EQ(callForText(client, BUS_INTERFACE, "ListDeclarations"), "[]");
}

/** The ids in a list of declarations, of a client that has no more than ten. */
std::string idsIn(const std::string &list)
{
    const std::string member = R"("id":)";
    std::string ids;
    for (auto at = list.find(member); at != std::string::npos; at = list.find(member, at + 1)) {
        ids += list.at(at + member.size());
    }
    return ids;
}

/** The ids of what can match one condition of each kind; an empty key means no such condition. */
std::string matching(RawClient &client, const std::string &value, const std::string &nameSpace,
                     const std::string &absentKey)
{
    norq::event::BusMessage answer;
    const char *text = nullptr;
    const std::string key = "topic0";
    EXPECT_GE(sd_bus_call_method(client.bus.get(), BUS_NAME, BUS_PATH, BUS_INTERFACE,
                                 "ListMatching", nullptr, norq::event::Out(answer), "a(ss)a(ss)as",
                                 1, key.c_str(), value.c_str(), 1, key.c_str(), nameSpace.c_str(),
                                 1, absentKey.c_str()),
              0);
    EXPECT_GE(sd_bus_message_read(answer.get(), "s", &text), 0);
    return idsIn(text);
}

DeclarationPtr declarationOf(const char *topic, const char *nameSpace, bool withOpenKey)
{
    DeclarationPtr declaration(event_declaration_new(EVENT_DECLARATION_DEFAULT, nullptr));
    event_declaration_t *raw = declaration.get();
    if (topic != nullptr) {
        event_declaration_add_key_value(raw, "topic0", event_value_string(topic), nullptr);
    } else {
        event_declaration_add_key(raw, "topic0", EVENT_VALUE_STRING, nullptr);
    }
    event_declaration_set_name_space(raw, "topic0", nameSpace);
    if (withOpenKey) {
        event_declaration_add_key(raw, "open", EVENT_VALUE_BOOLEAN, nullptr);
    }
    return declaration;
}

TEST_F(BusSurface, OnlyTheDeclarationsThatCanMatchAreListedWhenAskedSo)
{
    RawClient client;
    const ProducerPtr producer = newProducer("producer");
    for (const auto &declaration :
         {declarationOf("A", "tns1", false), declarationOf("B", "tns1", false),
          declarationOf("A", "other", false), declarationOf("A", "tns1", true),
          declarationOf(nullptr, "tns1", false)}) {
        ASSERT_GE(event_producer_declare(producer.get(), declaration.get()), 0);
    }
    EXPECT_EQ(matching(client, "A", "tns1", "open"), "04");
    EXPECT_EQ(matching(client, "B", "tns1", "open"), "14");
    EXPECT_EQ(matching(client, "A", "other", "open"), "2");
    EXPECT_EQ(matching(client, "A", "tns1", "none"), "034");
    EXPECT_EQ(matching(client, "C", "other", "none"), "");
}

TEST_F(BusSurface, ConditionsThatExcludeEachOtherAreRefusedInAList)
{
    RawClient client;
    sd_bus_error error = {};
    EXPECT_LT(sd_bus_call_method(client.bus.get(), BUS_NAME, BUS_PATH, BUS_INTERFACE,
                                 "ListMatching", &error, nullptr, "a(ss)a(ss)as", 2, "key", "a",
                                 "key", "b", 0, 0),
              0);
    EXPECT_STREQ(error.name, norq::event::ERROR_INVALID);
    sd_bus_error_free(&error);
}

} // namespace
} // namespace event_test
