#include "embedded_host/tls_context.h"

#include <openssl/err.h>
#include <openssl/x509.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <string_view>

#include "embedded_host/credentials.h"

namespace corvane::host {

namespace {

std::string openssl_error() {
  const unsigned long code = ERR_peek_last_error();
  ERR_clear_error();
  const char* reason = ERR_reason_error_string(code);
  return reason != nullptr ? reason : "unfit";
}

// Empty if the file exists and, for a key, only its owner can read it.
std::string check_file(const std::string& path, bool is_key) {
  struct stat state {};
  if (stat(path.c_str(), &state) != 0) return path + ": " + std::strerror(errno);
  if (is_key && (state.st_mode & (S_IRWXG | S_IRWXO)) != 0) {
    return path + ": others than its owner can read this key";
  }
  return {};
}

}  // namespace

std::string set_up_tls(SSL_CTX& context, const std::string& directory) {
  const std::string authority = directory + "/ca.pem";
  const std::string certificate = directory + "/server.pem";
  const std::string key = directory + "/server.key";
  for (const std::string& path : {authority, certificate, key}) {
    if (std::string wrong = check_file(path, path == key); !wrong.empty()) return wrong;
  }
  SSL_CTX_set_min_proto_version(&context, TLS1_2_VERSION);
  SSL_CTX_set_options(
      &context, SSL_OP_NO_RENEGOTIATION | SSL_OP_NO_COMPRESSION | SSL_OP_IGNORE_UNEXPECTED_EOF);
  // Without it a client that resumes a session would be rejected, since certificates are checked.
  static constexpr unsigned char kSessionContext[] = "cvhostd";
  SSL_CTX_set_session_id_context(&context, kSessionContext, sizeof kSessionContext - 1);
  SSL_CTX_set_verify(&context, SSL_VERIFY_PEER | SSL_VERIFY_FAIL_IF_NO_PEER_CERT, nullptr);
  if (SSL_CTX_load_verify_locations(&context, authority.c_str(), nullptr) != 1) {
    return authority + ": " + openssl_error();
  }
  SSL_CTX_set_client_CA_list(&context, SSL_load_client_CA_file(authority.c_str()));
  if (SSL_CTX_use_certificate_chain_file(&context, certificate.c_str()) != 1) {
    return certificate + ": " + openssl_error();
  }
  if (SSL_CTX_use_PrivateKey_file(&context, key.c_str(), SSL_FILETYPE_PEM) != 1) {
    return key + ": " + openssl_error();
  }
  return {};
}

ClientType client_type(const SSL* connection) {
  const X509* certificate = connection != nullptr ? SSL_get0_peer_certificate(connection) : nullptr;
  if (certificate == nullptr) return ClientType::kUnknown;
  const X509_NAME* subject = X509_get_subject_name(certificate);
  const int index = X509_NAME_get_index_by_NID(subject, NID_organizationalUnitName, -1);
  if (index < 0) return ClientType::kUnknown;
  const ASN1_STRING* unit = X509_NAME_ENTRY_get_data(X509_NAME_get_entry(subject, index));
  const std::string_view text(reinterpret_cast<const char*>(ASN1_STRING_get0_data(unit)),
                              static_cast<std::size_t>(ASN1_STRING_length(unit)));
  if (text == kHostUnit) return ClientType::kHost;
  if (text == kServiceUnit) return ClientType::kService;
  return ClientType::kUnknown;
}

}  // namespace corvane::host
