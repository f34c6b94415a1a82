#include <openssl/pem.h>
#include <openssl/x509v3.h>

#include <cstdio>
#include <memory>

#include "KwNetTestHost.h"

namespace {

using Key = std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)>;
using Certificate = std::unique_ptr<X509, decltype(&X509_free)>;

struct Identity {
    Key key{EVP_EC_gen("P-256"), EVP_PKEY_free};
    Certificate certificate{X509_new(), X509_free};
};

void AddExtension(X509* to, int nid, const char* text) {
    X509_EXTENSION* const extension = X509V3_EXT_conf_nid(nullptr, nullptr, nid, text);
    ASSERT_NE(extension, nullptr);
    X509_add_ext(to, extension, -1);
    X509_EXTENSION_free(extension);
}

// An identity for `names`, valid for `days` from yesterday on; its own authority where that is null.
void Make(Identity& made, const char* names, int days, const Identity* authority) {
    X509* const x509 = made.certificate.get();
    X509_set_version(x509, 2);
    ASN1_INTEGER_set(X509_get_serialNumber(x509), authority == nullptr ? 1 : 2);
    X509_gmtime_adj(X509_getm_notBefore(x509), -86400);
    X509_gmtime_adj(X509_getm_notAfter(x509), 86400 * (days - 1));
    X509_set_pubkey(x509, made.key.get());
    const auto* const name = reinterpret_cast<const unsigned char*>(authority == nullptr ? "authority" : "server");
    X509_NAME_add_entry_by_txt(X509_get_subject_name(x509), "CN", MBSTRING_ASC, name, -1, -1, 0);
    const Identity& issuer = authority == nullptr ? made : *authority;
    X509_set_issuer_name(x509, X509_get_subject_name(issuer.certificate.get()));
    AddExtension(x509, NID_basic_constraints, authority == nullptr ? "critical,CA:TRUE" : "CA:FALSE");
    if (names != nullptr) AddExtension(x509, NID_subject_alt_name, names);
    ASSERT_NE(X509_sign(x509, issuer.key.get(), EVP_sha256()), 0);
}

class KwNetTlsTest : public KwNetTest {
protected:
    void SetUp() override {
        KwNetTest::SetUp();
        Make(authority_, nullptr, 10, nullptr);
        Write("authority", authority_);
        serverSettings.tls.on = clientSettings.tls.on = true;
        clientSettings.tls.authorityFile = "authority.crt";
        host.echo = true;
    }
    void TearDown() override {
        KwNetTest::TearDown();
        for (const std::string& file : files_) std::remove(file.c_str());
    }
    void Write(const std::string& name, const Identity& identity) {
        files_.insert(files_.end(), {name + ".crt", name + ".key"});
        std::FILE* file = std::fopen((name + ".crt").c_str(), "w");
        PEM_write_X509(file, identity.certificate.get());
        std::fclose(file);
        file = std::fopen((name + ".key").c_str(), "w");
        PEM_write_PrivateKey(file, identity.key.get(), nullptr, nullptr, 0, nullptr, nullptr);
        std::fclose(file);
    }
    void ListenAs(const char* names, int days) {
        Identity identity;
        Make(identity, names, days, &authority_);
        Write("server", identity);
        serverSettings.tls.certificateFile = "server.crt";
        serverSettings.tls.keyFile = "server.key";
        Listen();
    }
    // A client that must not come to a connection.
    void ExpectRefused() {
        TestClient peer;
        Begin(peer);
        EXPECT_TRUE(Pump([&] { return !peer.closes.empty(); }));
        EXPECT_EQ(peer.connects, 0);
        EXPECT_EQ(peer.closes, std::vector<KwNetClose>{KwNetClose::kTls});
        EXPECT_EQ(peer.client->GetCounters().tlsFailures, 1u);
        ASSERT_FALSE(peer.errors.empty());
        EXPECT_NE(peer.errors[0].find("certificate verify failed"), std::string::npos) << peer.errors[0];
    }

private:
    Identity authority_;
    std::vector<std::string> files_;
};

TEST_F(KwNetTlsTest, PacketsOfAllSizesThereAndBack) {
    ListenAs("IP:127.0.0.1", 10);
    TestClient peer;
    Connect(peer);
    std::vector<std::string> texts;
    for (std::size_t size : {0, 1, 16384, 40000, 65532}) texts.push_back(std::string(size, 'x'));
    std::string stream;
    for (const std::string& text : texts) stream += Packet(text);
    for (int i = 0; i < 20; ++i) SendText(peer.client, stream);
    ASSERT_TRUE(Pump([&] { return peer.packets.size() == 100; }));
    for (std::size_t i = 0; i < 100; ++i) EXPECT_EQ(peer.packets[i], texts[i % 5]);
    EXPECT_GT(server->GetCounters().bytesIn, 20 * stream.size());
    peer.client->Close();
    EXPECT_EQ(NextClose(), KwNetClose::kPeer);
}

TEST_F(KwNetTlsTest, WrongNamesAndDatesAndStrangersAreRefused) {
    ListenAs("DNS:example.test", 10);
    ExpectRefused();
    {
        clientSettings.tls.hostName = "example.test";
        TestClient peer;
        Connect(peer);
    }
    clientSettings.tls.hostName = "other.test";
    ExpectRefused();
    clientSettings.tls.hostName = "example.test";
    clientSettings.tls.authorityFile = "server.crt";
    ExpectRefused();
    clientSettings.tls.verifyServer = false;
    TestClient careless;
    Connect(careless);
}

TEST_F(KwNetTlsTest, AnExpiredCertificateIsRefused) {
    ListenAs("IP:127.0.0.1", 0);
    ExpectRefused();
}

TEST_F(KwNetTlsTest, AServerCanAskForCertificates) {
    serverSettings.tls.verifyClients = true;
    serverSettings.tls.authorityFile = "authority.crt";
    ListenAs("IP:127.0.0.1", 10);
    {
        TestClient stranger;
        Begin(stranger);
        EXPECT_TRUE(Pump([&] { return !stranger.closes.empty(); }));
        EXPECT_EQ(host.connects, 0);
        EXPECT_EQ(server->GetCounters().tlsFailures, 1u);
    }
    clientSettings.tls.certificateFile = "server.crt";
    clientSettings.tls.keyFile = "server.key";
    TestClient known;
    Connect(known);
}

TEST_F(KwNetTlsTest, WhoDoesNotSpeakTlsFails) {
    serverSettings.limits.stalledMs = 200;
    ListenAs("IP:127.0.0.1", 10);
    clientSettings.tls.on = false;
    TestClient plain, silent;
    Begin(silent);
    Begin(plain);
    ASSERT_TRUE(Pump([&] { return plain.connects == 1 && silent.connects == 1; }));
    SendText(plain.client, Packet("this is no handshake"));
    EXPECT_TRUE(Pump([&] { return !plain.closes.empty() && !silent.closes.empty(); }));
    EXPECT_EQ(server->GetCounters().tlsFailures, 1u);
    EXPECT_EQ(server->GetCounters().timeouts, 1u);
    EXPECT_EQ(host.connects, 0);
}

TEST_F(KwNetTlsTest, FilesThatCannotBeUsedFailAloud) {
    EXPECT_EQ(manager.Listen(serverSettings, &host), nullptr);
    serverSettings.tls.certificateFile = serverSettings.tls.keyFile = "no such file";
    EXPECT_EQ(manager.Listen(serverSettings, &host), nullptr);
    serverSettings.tls.certificateFile = "authority.crt";
    serverSettings.tls.keyFile = "authority.crt";
    EXPECT_EQ(manager.Listen(serverSettings, &host), nullptr);
}

}  // namespace
