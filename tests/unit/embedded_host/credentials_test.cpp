#include "embedded_host/credentials.h"

#include <gtest/gtest.h>
#include <openssl/pem.h>
#include <openssl/x509_vfy.h>
#include <openssl/x509v3.h>

#include "tests/support/error_of.h"
#include "tests/support/file_creation_mask.h"
#include "tests/support/file_size_limit.h"
#include "tests/support/scratch_dir.h"

namespace corvane::host {
namespace {

namespace fs = std::filesystem;
using corvane::test::error_of;
using corvane::test::read_file;
using corvane::test::ScratchDir;

struct Release {
  void operator()(X509* certificate) const { X509_free(certificate); }
  void operator()(X509_STORE* store) const { X509_STORE_free(store); }
  void operator()(X509_STORE_CTX* context) const { X509_STORE_CTX_free(context); }
  void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
};
using CertificatePtr = std::unique_ptr<X509, Release>;

CertificatePtr certificate(const std::string& path) {
  const std::unique_ptr<std::FILE, decltype(&fclose)> file(std::fopen(path.c_str(), "r"), fclose);
  return CertificatePtr(PEM_read_X509(file.get(), nullptr, nullptr, nullptr));
}

class Credentials : public ::testing::Test {
 protected:
  // Whether the authority vouches for `name` for this purpose, at this time.
  bool vouched(const std::string& name, int purpose, std::time_t when) const {
    const std::unique_ptr<X509_STORE, Release> store(X509_STORE_new());
    X509_STORE_add_cert(store.get(), certificate(set_ + "/ca.pem").get());
    const CertificatePtr end = certificate(set_ + "/" + name + ".pem");
    const std::unique_ptr<X509_STORE_CTX, Release> context(X509_STORE_CTX_new());
    X509_STORE_CTX_init(context.get(), store.get(), end.get(), nullptr);
    X509_STORE_CTX_set_purpose(context.get(), purpose);
    X509_STORE_CTX_set_time(context.get(), 0, when);
    X509_VERIFY_PARAM_set_flags(X509_STORE_CTX_get0_param(context.get()), X509_V_FLAG_X509_STRICT);
    return X509_verify_cert(context.get()) == 1;
  }

  ScratchDir dir_;
  std::string set_ = dir_("set");
  static constexpr std::time_t kNow = 1800000000;
};

TEST_F(Credentials, AuthorityVouchesForAll) {
  make_credentials(set_, {"master01.example.com"});
  EXPECT_TRUE(vouched("server", X509_PURPOSE_SSL_SERVER, kNow));
  EXPECT_TRUE(vouched("host", X509_PURPOSE_SSL_CLIENT, kNow));
  EXPECT_TRUE(vouched("service", X509_PURPOSE_SSL_CLIENT, kNow));
  EXPECT_FALSE(vouched("server", X509_PURPOSE_SSL_CLIENT, kNow));
  EXPECT_FALSE(vouched("host", X509_PURPOSE_SSL_SERVER, kNow));
}

TEST_F(Credentials, EachNamesTheKeyThatSignedIt) {
  make_credentials(set_, {});
  const auto key_of = [](const ASN1_OCTET_STRING* id) {
    return id == nullptr ? "" : std::string(reinterpret_cast<const char*>(id->data), id->length);
  };
  const CertificatePtr authority = certificate(set_ + "/ca.pem");
  const std::string signer = key_of(X509_get0_subject_key_id(authority.get()));
  for (const char* name : {"server", "host", "service"}) {
    const CertificatePtr end = certificate(set_ + "/" + name + ".pem");
    EXPECT_EQ(key_of(X509_get0_authority_key_id(end.get())), signer) << name;
    EXPECT_NE(key_of(X509_get0_subject_key_id(end.get())), signer) << name;
  }
  EXPECT_NE(signer, "");
}

TEST_F(Credentials, AreGoodWhateverTheClockShows) {
  make_credentials(set_, {});
  EXPECT_TRUE(vouched("host", X509_PURPOSE_SSL_CLIENT, 946684801));     // 2000
  EXPECT_TRUE(vouched("server", X509_PURPOSE_SSL_SERVER, 4102444799));  // 2099
  EXPECT_FALSE(vouched("host", X509_PURPOSE_SSL_CLIENT, 4102444801));
}

TEST_F(Credentials, ServerHasItsNames) {
  make_credentials(set_, {"master01.example.com", "media01"});
  const CertificatePtr server = certificate(set_ + "/server.pem");
  for (const char* name : {"master01.example.com", "media01", "localhost"}) {
    EXPECT_EQ(X509_check_host(server.get(), name, 0, 0, nullptr), 1) << name;
  }
  EXPECT_EQ(X509_check_ip_asc(server.get(), "127.0.0.1", 0), 1);
  EXPECT_EQ(X509_check_host(server.get(), "other.example.com", 0, 0, nullptr), 0);
}

TEST_F(Credentials, KeysAreTheirOwnersAlone) {
  {
    const corvane::test::FileCreationMask none(0);
    make_credentials(set_, {});
  }
  for (const char* key : {"server.key", "host.key", "service.key", "private/ca.key"}) {
    EXPECT_EQ(fs::status(set_ + "/" + key).permissions(), fs::perms(0600)) << key;
  }
  EXPECT_EQ(fs::status(set_ + "/private").permissions(), fs::perms(0700));
  EXPECT_EQ(fs::status(set_).permissions(), fs::perms(0755));
  for (const char* name : {"ca.pem", "server.pem", "host.pem", "service.pem"}) {
    EXPECT_EQ(fs::status(set_ + "/" + name).permissions(), fs::perms(0644)) << name;
  }
}

TEST_F(Credentials, CertificatesSayWhoseTheyAre) {
  make_credentials(set_, {"media01"});
  const auto line = [](const X509_NAME* name) {
    const std::unique_ptr<BIO, decltype(&BIO_free_all)> bio(BIO_new(BIO_s_mem()), BIO_free_all);
    X509_NAME_print_ex(bio.get(), name, 0, XN_FLAG_ONELINE);
    char* text = nullptr;
    const long length = BIO_get_mem_data(bio.get(), &text);
    return std::string(text, static_cast<std::size_t>(length));
  };
  const std::string authority =
      "O = Corvane, OU = certificate authority, CN = Corvane certificate authority";
  const std::pair<const char*, std::string> subjects[] = {
      {"ca", authority},
      {"server", "O = Corvane, OU = web service, CN = media01"},
      {"host", "O = Corvane, OU = host certificate, CN = host"},
      {"service", "O = Corvane, OU = service certificate, CN = service"}};
  std::set<std::uint64_t> serial_numbers{0};
  for (const auto& [name, subject] : subjects) {
    const CertificatePtr shown = certificate(set_ + "/" + name + ".pem");
    EXPECT_EQ(line(X509_get_subject_name(shown.get())), subject);
    EXPECT_EQ(line(X509_get_issuer_name(shown.get())), authority);
    EXPECT_EQ(X509_get_version(shown.get()), X509_VERSION_3);
    std::uint64_t number = 0;
    ASN1_INTEGER_get_uint64(&number, X509_get0_serialNumber(shown.get()));
    EXPECT_TRUE(serial_numbers.insert(number).second) << name;
  }
}

TEST_F(Credentials, KeysFitTheirCertificates) {
  make_credentials(set_, {});
  for (const std::string name : {"server", "host", "service"}) {
    const std::unique_ptr<std::FILE, decltype(&fclose)> file(
        std::fopen((set_ + "/" + name + ".key").c_str(), "r"), fclose);
    const std::unique_ptr<EVP_PKEY, Release> key(
        PEM_read_PrivateKey(file.get(), nullptr, nullptr, nullptr));
    EXPECT_EQ(X509_check_private_key(certificate(set_ + "/" + name + ".pem").get(), key.get()), 1);
  }
}

TEST_F(Credentials, NothingIsOverwritten) {
  make_credentials(set_, {});
  const std::string before = read_file(set_ + "/host.key");
  EXPECT_EQ(error_of<CredentialsFailure>([&] { make_credentials(set_, {}); }),
            set_ + "/private/ca.key: already exists and is not overwritten");
  EXPECT_EQ(read_file(set_ + "/host.key"), before);
}

TEST_F(Credentials, AHalfMadeSetIsTakenBack) {
  corvane::test::write_file(set_ + "/service.key", "mine");
  EXPECT_THROW(make_credentials(set_, {}), CredentialsFailure);
  EXPECT_EQ(read_file(set_ + "/service.key"), "mine");
  for (const char* name : {"ca.pem", "server.pem", "server.key", "host.pem", "host.key",
                           "service.pem", "private/ca.key"}) {
    EXPECT_FALSE(fs::exists(set_ + "/" + name)) << name;
  }
}

TEST_F(Credentials, NoFileStaysOpen) {
  const auto open_files = [] {
    return std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator());
  };
  make_credentials(dir_("first"), {});  // what OpenSSL opens once and keeps
  const auto before = open_files();
  make_credentials(set_, {});
  EXPECT_EQ(open_files(), before);
}

TEST_F(Credentials, AFileThatCannotBeWrittenIsNamed) {
  const auto limited = [&](std::size_t bytes) {
    const std::string failure = error_of<CredentialsFailure>([&] {
      const corvane::test::FileSizeLimit limit(bytes);
      make_credentials(set_, {});
    });
    EXPECT_FALSE(fs::exists(set_ + "/private/ca.key"));
    return failure;
  };
  EXPECT_EQ(limited(0), set_ + "/private/ca.key: File too large");
  EXPECT_EQ(limited(10), set_ + "/private/ca.key: No space left on device");
}

TEST_F(Credentials, LongNamesAreTaken) {
  EXPECT_THROW(make_credentials(set_, {"media01", std::string(254, 'a')}), CredentialsFailure);
  make_credentials(set_, {"media01", std::string(253, 'a')});
}

TEST_F(Credentials, BadNamesAndFoldersAreRefused) {
  for (const char* name : {"", "a b", "a,DNS:evil", "a\n", "*.example.com"}) {
    EXPECT_THROW(make_credentials(set_, {name}), CredentialsFailure) << name;
  }
  EXPECT_FALSE(fs::exists(set_));
  EXPECT_EQ(error_of<CredentialsFailure>([&] { make_credentials(dir_("no/such"), {}); }),
            dir_("no/such") + ": No such file or directory");
}

}  // namespace
}  // namespace corvane::host
