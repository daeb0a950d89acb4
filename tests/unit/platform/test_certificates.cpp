#include "tests/unit/platform/test_certificates.h"

#include <fcntl.h>
#include <openssl/ec.h>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/x509v3.h>
#include <sys/stat.h>

#include <cstdio>
#include <stdexcept>

namespace corvane::test {

namespace {

constexpr long kHour = 3600;

void require(bool condition, const char* what) {
  if (!condition) throw std::runtime_error(std::string("cannot make certificates: ") + what);
}

struct CloseFile {
  void operator()(std::FILE* file) const noexcept { std::fclose(file); }
};

std::unique_ptr<std::FILE, CloseFile> open_private(const std::string& path) {
  const int descriptor = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  require(descriptor >= 0 && fchmod(descriptor, 0600) == 0, path.c_str());
  return std::unique_ptr<std::FILE, CloseFile>(fdopen(descriptor, "w"));
}

void write_certificate(X509* certificate, const std::string& path) {
  require(PEM_write_X509(open_private(path).get(), certificate) == 1, path.c_str());
}

void add_extension(X509* certificate, int kind, const char* value) {
  X509_EXTENSION* extension = X509V3_EXT_conf_nid(nullptr, nullptr, kind, value);
  require(extension != nullptr, value);
  X509_add_ext(certificate, extension, -1);
  X509_EXTENSION_free(extension);
}

CertificatePtr new_certificate(const std::string& name, EVP_PKEY* key, long valid_seconds) {
  CertificatePtr certificate(X509_new());
  require(certificate != nullptr, "memory");
  X509_set_version(certificate.get(), X509_VERSION_3);
  std::uint32_t serial = 0;
  require(RAND_bytes(reinterpret_cast<unsigned char*>(&serial), sizeof serial) == 1, "serial");
  ASN1_INTEGER_set_uint64(X509_get_serialNumber(certificate.get()), serial);
  X509_gmtime_adj(X509_getm_notBefore(certificate.get()), -kHour);
  X509_gmtime_adj(X509_getm_notAfter(certificate.get()), valid_seconds);
  X509_NAME_add_entry_by_txt(X509_get_subject_name(certificate.get()), "CN", MBSTRING_ASC,
                             reinterpret_cast<const unsigned char*>(name.c_str()), -1, -1, 0);
  X509_set_pubkey(certificate.get(), key);
  return certificate;
}

}  // namespace

Authority::Authority(const std::string& name) : key_(EVP_EC_gen("P-256")) {
  require(key_ != nullptr, "key");
  certificate_ = new_certificate(name, key_.get(), kHour);
  X509* certificate = certificate_.get();
  X509_set_issuer_name(certificate, X509_get_subject_name(certificate));
  add_extension(certificate, NID_basic_constraints, "critical,CA:TRUE");
  require(X509_sign(certificate, key_.get(), EVP_sha256()) > 0, "signature");
}

void Authority::write(const std::string& path) const {
  write_certificate(certificate_.get(), path);
}

std::string Authority::hashed_name() const {
  char name[16];
  std::snprintf(name, sizeof name, "%08lx.0", X509_subject_name_hash(certificate_.get()));
  return name;
}

void Authority::issue(const std::string& directory, const std::string& name,
                      const std::string& alternative_names, long valid_seconds) const {
  const KeyPtr key(EVP_EC_gen("P-256"));
  require(key != nullptr, "key");
  const CertificatePtr certificate = new_certificate(name, key.get(), valid_seconds);
  X509_set_issuer_name(certificate.get(), X509_get_subject_name(certificate_.get()));
  add_extension(certificate.get(), NID_subject_alt_name, alternative_names.c_str());
  require(X509_sign(certificate.get(), key_.get(), EVP_sha256()) > 0, "signature");
  const std::string base = directory + "/" + name;
  write_certificate(certificate.get(), base + ".pem");
  require(PEM_write_PrivateKey(open_private(base + ".key").get(), key.get(), nullptr, nullptr, 0,
                               nullptr, nullptr) == 1,
          "key file");
}

}  // namespace corvane::test
