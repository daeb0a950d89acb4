// The certificates and keys of a new installation.
#pragma once

#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace corvane::host {

// The organisational units by which the two types of client certificate are told apart.
inline constexpr std::string_view kHostUnit = "host certificate";
inline constexpr std::string_view kServiceUnit = "service certificate";

class CredentialsFailure : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Writes into `directory`, which is made when it is missing:
//   ca.pem                    the authority's certificate; its key is private/ca.key
//   server.pem, server.key    the web service's own, for `servers`, localhost and 127.0.0.1
//   host.pem, host.key        client certificate of type 1
//   service.pem, service.key  client certificate of type 2
// All are valid from 2000 to 2100, since clocks are shifted in demonstrations; keys have mode 0600.
// Throws CredentialsFailure when a file of the set exists already, when a name is no host name, or
// when a file cannot be written; the files that this call made are then removed again.
void make_credentials(const std::string& directory, const std::vector<std::string>& servers);

}  // namespace corvane::host
