// The TLS part of the web service: setting up a server context, and identifying clients.
#pragma once

#include <openssl/ssl.h>

#include <string>

#include "embedded_host/web_service.h"

namespace corvane::host {

// Makes `context` serve TLS 1.2 or later with DIRECTORY/server.pem and server.key, to clients whose
// certificate DIRECTORY/ca.pem has signed. Returns an empty text, or the problem: a file is missing
// or unusable, or anyone but its owner can read the key.
std::string set_up_tls(SSL_CTX& context, const std::string& directory);

// From the organisational unit in the client's certificate; unknown without a connection.
ClientType client_type(const SSL* connection);

}  // namespace corvane::host
