#include "platform/mqtt/fixture.h"
#include "platform/mqtt/name_lookup.h"

#include <stdexcept>

namespace mqtt_test {
namespace {

/** Authorities and certificates made by openssl for one test. */
class Certificates {
public:
    explicit Certificates(std::string path) : folder(std::move(path))
    {
        authority("ca");
        authority("other");
        certificate("server", "ca", BROKER_NAME);
        certificate("elsewhere", "ca", "elsewhere.invalid");
        certificate("client", "ca", "device");
        certificate("stranger", "other", "device");
    }
    [[nodiscard]] std::string file(const std::string &name) const { return folder + "/" + name; }

private:
    void openssl(std::vector<std::string> arguments) const
    {
        arguments.insert(arguments.begin(), "/usr/bin/openssl");
        test_support::ChildProcess tool(arguments);
        if (tool.waitForExit(test_support::DEADLINE) != 0) {
            throw std::runtime_error(tool.standardError());
        }
    }
    void authority(const std::string &name) const
    {
        openssl({"req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes",
                 "-days", "2", "-subj", "/CN=" + name, "-keyout", file(name + ".key"), "-out",
                 file(name + ".pem")});
    }
    void certificate(const std::string &name, const std::string &issuer,
                     const std::string &host) const
    {
        openssl({"req", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes", "-subj",
                 "/CN=" + host, "-keyout", file(name + ".key"), "-out", file(name + ".csr")});
        openssl({"x509", "-req", "-in", file(name + ".csr"), "-CA", file(issuer + ".pem"), "-CAkey",
                 file(issuer + ".key"), "-CAcreateserial", "-days", "2", "-out",
                 file(name + ".pem")});
    }

    std::string folder;
};

class MqttTlsTest : public MqttTest {
protected:
    MqttTlsTest() : certificates(certificateFolder.path()) {}

    [[nodiscard]] std::vector<std::string> brokerLines(const std::string &certificate,
                                                       bool demandCertificate = false) const
    {
        return {"allow_anonymous true", "cafile " + certificates.file("ca.pem"),
                "certfile " + certificates.file(certificate + ".pem"),
                "keyfile " + certificates.file(certificate + ".key"),
                std::string("require_certificate ") + (demandCertificate ? "true" : "false")};
    }

    [[nodiscard]] std::string ca(const std::string &name) const
    {
        return "ca-file=" + certificates.file(name + ".pem") + "\n";
    }
    [[nodiscard]] std::string own(const std::string &name) const
    {
        return "cert-file=" + certificates.file(name + ".pem") +
               "\nkey-file=" + certificates.file(name + ".key") + "\n";
    }

    /** Settings that reach the broker by its name. */
    void configureTls(const Broker &broker, const std::string &lines)
    {
        configure(broker.port(), std::string("host=") + BROKER_NAME, "[tls]\n" + lines);
    }
    [[nodiscard]] bool cannotConnect() const
    {
        return logged(G_LOG_LEVEL_WARNING, std::string("MQTT: cannot connect to ") + BROKER_NAME);
    }

    test_support::TempDirectory certificateFolder;
    Certificates certificates;
};

TEST_F(MqttTlsTest, ConnectsAndCarriesMessagesOfAnyNumberAndSize)
{
    Broker broker(brokerLines("server"));
    configureTls(broker, ca("ca"));
    TestClient client;
    client.init();
    client.subscribe("a/#", 1);
    ASSERT_TRUE(connected());
    ASSERT_TRUE(
        pumpUntil([&] { return broker.log().find("Sending SUBACK") != std::string::npos; }));
    for (int i = 0; i < 3000; ++i) {
        ASSERT_EQ(client.publish("a/b", std::string(static_cast<std::size_t>(i), 'x'), i % 2).code,
                  MQTTMSG_OK);
    }
    EXPECT_TRUE(pumpUntil([&] { return client.received.size() == 3000; }))
        << client.received.size();
    EXPECT_EQ(log.count(G_LOG_LEVEL_WARNING, ""), 0);
}

TEST_F(MqttTlsTest, RefusesABrokerOfAnotherAuthorityAndSaysWhy)
{
    Broker broker(brokerLines("server"));
    configureTls(broker, ca("other"));
    TestClient client;
    client.init();
    EXPECT_TRUE(logged(G_LOG_LEVEL_WARNING, "certificate verify failed"));
    EXPECT_EQ(log.count(G_LOG_LEVEL_WARNING, ""), 1);
    EXPECT_EQ(log.count(G_LOG_LEVEL_INFO, "connected"), 0);
}

TEST_F(MqttTlsTest, RefusesABrokerThatIsNotTheOneOfTheSettings)
{
    Broker broker(brokerLines("elsewhere"));
    configureTls(broker, ca("ca"));
    TestClient client;
    client.init();
    EXPECT_TRUE(cannotConnect());
    EXPECT_EQ(log.count(G_LOG_LEVEL_INFO, "connected"), 0);
}

TEST_F(MqttTlsTest, ShowsItsOwnCertificate)
{
    Broker broker(brokerLines("server", true));
    configureTls(broker, "min-version=1.3\n" + ca("ca") + own("client"));
    TestClient client;
    client.init();
    EXPECT_TRUE(connected());
}

TEST_F(MqttTlsTest, IsRefusedWithoutACertificateOrWithThatOfAStranger)
{
    Broker broker(brokerLines("server", true));
    for (const std::string &lines : {ca("ca"), ca("ca") + own("stranger")}) {
        log.clear();
        configureTls(broker, lines);
        TestClient client;
        client.init();
        EXPECT_TRUE(cannotConnect());
        EXPECT_EQ(log.count(G_LOG_LEVEL_INFO, "connected"), 0);
    }
}

TEST_F(MqttTlsTest, NeverFallsBackToAConnectionInTheClear)
{
    Broker broker;
    configureTls(broker, "enabled=true\nca-file=" + folder.file("missing.pem") + "\n");
    TestClient client;
    client.init();
    EXPECT_TRUE(logged(G_LOG_LEVEL_WARNING, "missing.pem cannot be read"));
    EXPECT_TRUE(logged(G_LOG_LEVEL_WARNING, "the TLS files of the settings cannot be used"));
    EXPECT_EQ(broker.log().find("New client connected"), std::string::npos);
}

TEST_F(MqttTlsTest, WithoutAnAuthorityOfItsOwnItTrustsThoseOfTheSystemAlone)
{
    Broker broker(brokerLines("server"));
    configureTls(broker, "enabled=true\n");
    TestClient client;
    client.init();
    EXPECT_TRUE(logged(G_LOG_LEVEL_WARNING, "certificate verify failed"));
}

TEST_F(MqttTlsTest, ABrokerThatIsNotThereIsNoticedAtOnce)
{
    configure(freePort(), "", "[tls]\nenabled=true\n");
    TestClient client;
    client.init();
    EXPECT_TRUE(logged(G_LOG_LEVEL_WARNING, "MQTT: cannot connect to 127.0.0.1"));
    EXPECT_EQ(log.count(G_LOG_LEVEL_WARNING, "no answer from the broker"), 0);
}

TEST_F(MqttTlsTest, AConnectionThatIsResetWhileItIsMadeIsNoticedAtOnce)
{
    const MuteServer server;
    configure(server.port(), "", "[tls]\nenabled=true\n");
    TestClient client;
    client.init();
    server.resetNext();
    EXPECT_TRUE(logged(G_LOG_LEVEL_WARNING, "MQTT: cannot connect to 127.0.0.1"));
    EXPECT_EQ(log.count(G_LOG_LEVEL_WARNING, "no answer from the broker"), 0);
}

TEST_F(MqttTlsTest, ABrokerWithoutTlsIsAFailure)
{
    Broker broker;
    for (const std::string &lines : {ca("ca"), std::string("enabled=true\n")}) {
        log.clear();
        configureTls(broker, lines);
        TestClient client;
        client.init();
        EXPECT_TRUE(cannotConnect());
    }
    EXPECT_EQ(broker.log().find("New client connected"), std::string::npos);
}

} // namespace
} // namespace mqtt_test
