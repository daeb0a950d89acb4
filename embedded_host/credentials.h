// The certificates and keys of a new installation.
#pragma once

#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace corvane::host {

// The organisational units that distinguish the two types of client certificate.
inline constexpr std::string_view kHostUnit = "host certificate";
inline constexpr std::string_view kServiceUnit = "service certificate";

class CredentialsFailure : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Writes to `directory`, which is created if it is missing:
//   ca.pem                    the authority's certificate; its key is private/ca.key
//   server.pem, server.key    the web service's, for `servers`, localhost and 127.0.0.1
//   host.pem, host.key        client certificate of type 1
//   service.pem, service.key  client certificate of type 2
// All are valid from 2000 to 2100, since clocks are shifted in demonstrations; keys have mode 0600.
// Throws CredentialsFailure if one of the files already exists, a name is not a host name, or a
// file cannot be written; the files that this call created are then removed again.
void make_credentials(const std::string& directory, const std::vector<std::string>& servers);

}  // namespace corvane::host
