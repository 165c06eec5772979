// Detached minisign signatures of package files: PACKAGE.minisig beside the package,
// made by `tkpack sign` and checked by `tkpack verify --pubkey` (and by whatever else
// must trust a package before it uses it). The files are minisign's own (minisign.h):
// `minisign -V` checks what SignPackage writes, and CheckPackageSignature accepts
// what `minisign -S` writes, prehashed or legacy.
//
// Not thread-safe when it asks for a password on the terminal (password.h).
#ifndef TAVIK_TKPACK_PACKAGE_SIGNATURE_H_
#define TAVIK_TKPACK_PACKAGE_SIGNATURE_H_

#include <string>

namespace tk {

inline constexpr const char* kSignatureSuffix = ".minisig";

// `packagePath` + kSignatureSuffix.
std::string SignaturePath(const std::string& packagePath);

// Signs the package with the secret key file at `secretKeyPath` and writes
// SignaturePath(packagePath) as minisign does by default (prehashed), with the trusted
// comment "timestamp:UNIX TIME<TAB>file:BASE NAME<TAB>hashed" and the untrusted comment
// "signature from tkpack secret key". The file is written beside it under
// SiblingTempPath and renamed into place: on failure no signature is half written and
// an older one stays as it was. A protected key's password is the first line of
// `passwordFile` when that is not "", else typed at the terminal (password.h); a key
// without password needs neither. Errors, besides those of password.h:
//   "cannot read secret key file KEY: REASON"
//   "bad secret key file KEY: PROBLEM"                        (a ParseSecretKeyFile error)
//   "secret key file KEY: wrong password (the key's checksum does not match)"
//   "cannot read PACKAGE: REASON"
//   "cannot write signature file PACKAGE.minisig: REASON"
bool SignPackage(const std::string& packagePath, const std::string& secretKeyPath,
                 const std::string& passwordFile, std::string& error);

// Checks SignaturePath(packagePath) against the public key file at `publicKeyPath`.
// True with `report` = "PACKAGE: signature ok, key KEY ID, trusted comment: TEXT".
// False with `error`, the first of:
//   "cannot read public key file PUB: REASON"
//   "bad public key file PUB: PROBLEM"                        (a ParsePublicKey error)
//   "missing signature file PACKAGE.minisig"
//   "cannot read signature file PACKAGE.minisig: REASON"
//   "bad signature file PACKAGE.minisig: PROBLEM"             (a ParseSignature error)
//   "PACKAGE.minisig: " + a VerifyFile error (another key, the package unreadable or
//       changed, the trusted comment changed)
// What a good signature says, for reports that want the pieces (`facts` may be null).
struct SignatureFacts {
  std::string keyId;           // KeyIdText of the key that signed
  std::string trustedComment;  // the signed comment
};
bool CheckPackageSignature(const std::string& packagePath, const std::string& publicKeyPath,
                           std::string& report, std::string& error,
                           SignatureFacts* facts = nullptr);

}  // namespace tk

#endif  // TAVIK_TKPACK_PACKAGE_SIGNATURE_H_
