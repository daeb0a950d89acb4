#include "embedded_host/tls_context.h"

#include <gmock/gmock.h>
#include <openssl/err.h>

#include "embedded_host/credentials.h"
#include "tests/support/scratch_dir.h"

namespace corvane::host {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;

class TlsContext : public ::testing::Test {
 protected:
  TlsContext() { make_credentials(dir_(), {}); }

  std::string set_up() const {
    const std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)> context(
        SSL_CTX_new(TLS_server_method()), SSL_CTX_free);
    return set_up_tls(*context, dir_());
  }

  corvane::test::ScratchDir dir_;
};

TEST_F(TlsContext, TakesAWholeSet) { EXPECT_EQ(set_up(), ""); }

TEST_F(TlsContext, AsksClientsForACertificateOfItsAuthority) {
  const std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)> context(SSL_CTX_new(TLS_server_method()),
                                                                  SSL_CTX_free);
  SSL_CTX_set_min_proto_version(context.get(), 0);
  EXPECT_EQ(set_up_tls(*context, dir_()), "");
  EXPECT_EQ(SSL_CTX_get_min_proto_version(context.get()), TLS1_2_VERSION);
  EXPECT_EQ(SSL_CTX_get_verify_mode(context.get()),
            SSL_VERIFY_PEER | SSL_VERIFY_FAIL_IF_NO_PEER_CERT);
  EXPECT_EQ(sk_X509_NAME_num(SSL_CTX_get_client_CA_list(context.get())), 1);
  const auto options =
      SSL_OP_NO_RENEGOTIATION | SSL_OP_NO_COMPRESSION | SSL_OP_IGNORE_UNEXPECTED_EOF;
  EXPECT_EQ(SSL_CTX_get_options(context.get()) & options, options);
}

TEST_F(TlsContext, NamesTheFileThatIsMissing) {
  for (const char* name : {"server.key", "server.pem", "ca.pem"}) {
    fs::remove(dir_(name));
    EXPECT_EQ(set_up(), dir_(name) + ": No such file or directory");
  }
}

TEST_F(TlsContext, RefusesAKeyThatOthersCanRead) {
  fs::permissions(dir_("server.key"), fs::perms(0640));
  EXPECT_EQ(set_up(), dir_("server.key") + ": others than its owner can read this key");
}

TEST_F(TlsContext, RefusesWhatDoesNotFit) {
  fs::copy_file(dir_("host.key"), dir_("server.key"), fs::copy_options::overwrite_existing);
  EXPECT_THAT(set_up(), HasSubstr("server.key: key values mismatch"));
  EXPECT_EQ(ERR_peek_error(), 0U) << "nobody else is told of it";
  corvane::test::write_file(dir_("server.pem"), "garbage");
  EXPECT_THAT(set_up(), HasSubstr("server.pem: "));
  corvane::test::write_file(dir_("ca.pem"), "garbage");
  EXPECT_THAT(set_up(), HasSubstr("ca.pem: "));
}

TEST_F(TlsContext, NoConnectionIsAnUnknownClient) {
  EXPECT_EQ(client_type(nullptr), ClientType::kUnknown);
}

}  // namespace
}  // namespace corvane::host
