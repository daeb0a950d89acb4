// Certificates made on the spot.
#pragma once

#include <openssl/evp.h>
#include <openssl/x509.h>

#include <memory>
#include <string>

namespace corvane::test {

struct FreeOpenSsl {
  void operator()(EVP_PKEY* key) const noexcept { EVP_PKEY_free(key); }
  void operator()(X509* certificate) const noexcept { X509_free(certificate); }
};
using KeyPtr = std::unique_ptr<EVP_PKEY, FreeOpenSsl>;
using CertificatePtr = std::unique_ptr<X509, FreeOpenSsl>;

// A new certificate authority. Its functions throw when OpenSSL or the disk does not cooperate.
class Authority {
 public:
  explicit Authority(const std::string& name);

  // Its own certificate, in PEM.
  void write(const std::string& path) const;

  // The file name under which OpenSSL looks for it in a directory of authorities.
  std::string hashed_name() const;

  // directory/name.pem and .key (mode 0600) of a new certificate for these subject alternative
  // names
  // ("DNS:localhost,IP:127.0.0.1"), valid from an hour ago for that many seconds from now.
  void issue(const std::string& directory, const std::string& name,
             const std::string& alternative_names, long valid_seconds = 3600) const;

 private:
  KeyPtr key_;
  CertificatePtr certificate_;
};

}  // namespace corvane::test
