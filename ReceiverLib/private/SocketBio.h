#pragma once

#include <openssl/bio.h>

namespace wifi_projection_protocol {

/// Makes the BIO by which OpenSSL reads and writes a non-blocking socket. Unlike OpenSSL's own it sends
/// without raising SIGPIPE, whatever the program has done about that signal.
/// @param socket borrowed, and looked up at every call: it outlives the BIO.
/// @return empty when memory runs out; otherwise the caller's.
BIO* makeSocketBio(const int& socket);

}  // namespace wifi_projection_protocol
