// Where `tkpack sign` gets the password of a protected secret key: the first line of a
// file, or a line typed at the controlling terminal with echo off. The password goes
// straight into SecretBytes.
//
// Not thread-safe: the terminal reader changes the terminal and signal handlers of
// the process while it reads.
#ifndef TAVIK_TKPACK_PASSWORD_H_
#define TAVIK_TKPACK_PASSWORD_H_

#include <cstddef>
#include <string>

#include "tkpack/secret_bytes.h"

namespace tk {

// minisign's own limit.
inline constexpr std::size_t kMaxPasswordBytes = 1024;

// The first line of the file at `path` without its line end (LF or CR LF). Errors:
// "cannot read password file PATH: REASON", "the password in PATH is longer than 1024
// bytes".
bool ReadPasswordFile(const std::string& path, SecretBytes& password, std::string& error);

// Writes `prompt` on the controlling terminal (/dev/tty) and reads one line there with
// echo off. The terminal's settings are restored on every way out, also when SIGINT,
// SIGTERM, SIGHUP or SIGQUIT arrives while it waits (restored, then the signal takes
// its default action; pinned by Signatures.TerminalEchoIsOffAndComesBack). Errors: "no
// terminal to read the password from (give --password-file FILE)", "cannot read the
// password from the terminal: REASON", "the password is longer than 1024 bytes".
bool ReadPasswordFromTerminal(const std::string& prompt, SecretBytes& password, std::string& error);

}  // namespace tk

#endif  // TAVIK_TKPACK_PASSWORD_H_
