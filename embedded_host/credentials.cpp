#include "embedded_host/credentials.h"

#include <fcntl.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/x509v3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>

#include "platform/descriptor.h"

namespace corvane::host {

namespace {

struct Release {
  void operator()(EVP_PKEY* key) const noexcept { EVP_PKEY_free(key); }
  void operator()(X509* certificate) const noexcept { X509_free(certificate); }
  void operator()(X509_EXTENSION* extension) const noexcept { X509_EXTENSION_free(extension); }
  void operator()(BIO* bio) const noexcept { BIO_free_all(bio); }
};
using KeyPtr = std::unique_ptr<EVP_PKEY, Release>;
using CertificatePtr = std::unique_ptr<X509, Release>;
using ExtensionPtr = std::unique_ptr<X509_EXTENSION, Release>;
using BioPtr = std::unique_ptr<BIO, Release>;

void require(bool done, const char* what) {
  if (!done) throw CredentialsFailure(std::string("OpenSSL cannot ") + what);
}

struct Identity {
  KeyPtr key;
  CertificatePtr certificate;
};

struct Wish {
  std::string name;
  std::string_view unit;
  std::vector<std::pair<int, std::string>> extensions;  // by NID, in OpenSSL's own notation
};

void add_name(X509_NAME* name, const char* field, std::string_view text) {
  if (text.empty()) return;
  require(X509_NAME_add_entry_by_txt(name, field, MBSTRING_UTF8,
                                     reinterpret_cast<const unsigned char*>(text.data()),
                                     static_cast<int>(text.size()), -1, 0) == 1,
          "write a certificate's name");
}

void set_serial_number(X509* certificate) {
  std::uint64_t number = 0;
  require(RAND_bytes(reinterpret_cast<unsigned char*>(&number), sizeof number) == 1,
          "draw a serial number");
  require(ASN1_INTEGER_set_uint64(X509_get_serialNumber(certificate), number >> 1) == 1,
          "set a serial number");
}

// A key and its certificate, signed by `authority`, or self-signed if that is null.
Identity make_identity(const Wish& wish, const Identity* authority) {
  Identity made{KeyPtr(EVP_EC_gen("P-256")), CertificatePtr(X509_new())};
  require(made.key != nullptr && made.certificate != nullptr, "make a key");
  X509* certificate = made.certificate.get();
  require(X509_set_version(certificate, X509_VERSION_3) == 1, "set a version");
  set_serial_number(certificate);
  require(ASN1_TIME_set_string(X509_getm_notBefore(certificate), "20000101000000Z") == 1 &&
              ASN1_TIME_set_string(X509_getm_notAfter(certificate), "21000101000000Z") == 1,
          "set the time of validity");
  X509_NAME* subject = X509_get_subject_name(certificate);
  add_name(subject, "O", "Corvane");
  add_name(subject, "OU", wish.unit);
  add_name(subject, "CN", wish.name);
  X509* issuer = authority != nullptr ? authority->certificate.get() : certificate;
  require(X509_set_issuer_name(certificate, X509_get_subject_name(issuer)) == 1 &&
              X509_set_pubkey(certificate, made.key.get()) == 1,
          "fill a certificate");
  X509V3_CTX context;
  X509V3_set_ctx(&context, issuer, certificate, nullptr, nullptr, 0);
  for (const auto& [nid, text] : wish.extensions) {
    const ExtensionPtr extension(X509V3_EXT_conf_nid(nullptr, &context, nid, text.c_str()));
    require(extension != nullptr && X509_add_ext(certificate, extension.get(), -1) == 1,
            "add an extension");
  }
  EVP_PKEY* signer = authority != nullptr ? authority->key.get() : made.key.get();
  require(X509_sign(certificate, signer, EVP_sha256()) != 0, "sign a certificate");
  return made;
}

std::string pem_text(const BioPtr& bio) {
  char* start = nullptr;
  const long length = BIO_get_mem_data(bio.get(), &start);
  return {start, static_cast<std::size_t>(length)};
}

std::string pem(X509* certificate) {
  const BioPtr bio(BIO_new(BIO_s_mem()));
  require(bio != nullptr && PEM_write_bio_X509(bio.get(), certificate) == 1, "write a certificate");
  return pem_text(bio);
}

std::string pem(EVP_PKEY* key) {
  const BioPtr bio(BIO_new(BIO_s_mem()));
  require(bio != nullptr &&
              PEM_write_bio_PrivateKey(bio.get(), key, nullptr, nullptr, 0, nullptr, nullptr) == 1,
          "write a key");
  return pem_text(bio);
}

// New files, removed again unless keep() is called.
class NewFiles {
 public:
  explicit NewFiles(std::string directory) : directory_(std::move(directory)) {}
  ~NewFiles() {
    for (const std::string& path : made_) ::unlink(path.c_str());
  }
  NewFiles(const NewFiles&) = delete;
  NewFiles& operator=(const NewFiles&) = delete;

  void add(const std::string& name, const std::string& text, mode_t mode) {
    const std::string path = directory_ + "/" + name;
    const Descriptor file(::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode));
    if (!file.is_open()) {
      const std::string reason =
          errno == EEXIST ? "already exists and is not overwritten" : std::strerror(errno);
      throw CredentialsFailure(path + ": " + reason);
    }
    made_.push_back(path);
    const ssize_t written = ::write(file.get(), text.data(), text.size());
    const int error = errno;
    const bool kept = ::fsync(file.get()) == 0;
    if (written != static_cast<ssize_t>(text.size()) || !kept) {
      throw CredentialsFailure(path + ": " + std::strerror(written < 0 ? error : ENOSPC));
    }
  }

  void add(const std::string& name, const Identity& identity) {
    add(name + ".pem", pem(identity.certificate.get()), 0644);
    add(name + ".key", pem(identity.key.get()), 0600);
  }

  void keep() { made_.clear(); }

 private:
  std::string directory_;
  std::vector<std::string> made_;
};

void make_directory(const std::string& path, mode_t mode) {
  if (::mkdir(path.c_str(), mode) != 0 && errno != EEXIST) {
    throw CredentialsFailure(path + ": " + std::strerror(errno));
  }
}

void check_server_name(const std::string& name) {
  const bool good = !name.empty() && name.size() <= 253 &&
                    name.find_first_not_of(
                        "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ"
                        "0123456789.-") == std::string::npos;
  if (!good) throw CredentialsFailure("'" + name + "' is not a host name");
}

std::string alternative_names(const std::vector<std::string>& servers) {
  std::string names = "DNS:localhost,IP:127.0.0.1,IP:::1";
  for (const std::string& server : servers) names += ",DNS:" + server;
  return names;
}

}  // namespace

void make_credentials(const std::string& directory, const std::vector<std::string>& servers) {
  for (const std::string& server : servers) check_server_name(server);

  const Identity authority =
      make_identity({.name = "Corvane certificate authority",
                     .unit = "certificate authority",
                     .extensions = {{NID_basic_constraints, "critical,CA:TRUE"},
                                    {NID_key_usage, "critical,keyCertSign,cRLSign"},
                                    {NID_subject_key_identifier, "hash"}}},
                    nullptr);
  const auto end_entity = [&](const std::string& name, std::string_view unit, const char* usage) {
    return Wish{.name = name,
                .unit = unit,
                .extensions = {{NID_basic_constraints, "critical,CA:FALSE"},
                               {NID_key_usage, "critical,digitalSignature"},
                               {NID_ext_key_usage, usage},
                               {NID_subject_key_identifier, "hash"},
                               {NID_authority_key_identifier, "keyid:always"}}};
  };
  Wish server =
      end_entity(servers.empty() ? "localhost" : servers.front(), "web service", "serverAuth");
  server.extensions.emplace_back(NID_subject_alt_name, alternative_names(servers));

  make_directory(directory, 0755);
  make_directory(directory + "/private", 0700);
  NewFiles files(directory);
  files.add("private/ca.key", pem(authority.key.get()), 0600);
  files.add("ca.pem", pem(authority.certificate.get()), 0644);
  files.add("server", make_identity(server, &authority));
  files.add("host", make_identity(end_entity("host", kHostUnit, "clientAuth"), &authority));
  files.add("service",
            make_identity(end_entity("service", kServiceUnit, "clientAuth"), &authority));
  files.keep();
}

}  // namespace corvane::host
