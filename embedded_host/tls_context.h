// The TLS side of the web service: what a server context needs, and who a client is.
#pragma once

#include <openssl/ssl.h>

#include <string>

#include "embedded_host/web_service.h"

namespace corvane::host {

// Makes `context` serve TLS 1.2 or later with DIRECTORY/server.pem and server.key, to clients whose
// certificate DIRECTORY/ca.pem has signed. Returns an empty text, or what is wrong: a file that is
// missing or unfit, or a key that others than its owner can read.
std::string set_up_tls(SSL_CTX& context, const std::string& directory);

// By the organisational unit in the client's certificate; unknown for no connection.
ClientType client_type(const SSL* connection);

}  // namespace corvane::host
