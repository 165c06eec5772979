#include "tkpack/package_signature.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <ctime>

#include "package/temp_paths.h"
#include "support/files.h"
#include "tkpack/minisign.h"
#include "tkpack/password.h"

namespace tk {

namespace {

constexpr const char* kUntrustedComment = "signature from tkpack secret key";
constexpr mode_t kSignatureMode = 0644;

std::string BaseName(const std::string& path) { return path.substr(path.rfind('/') + 1); }

// "timestamp:1700000000\tfile:x.pkg\thashed", as minisign writes it.
std::string TrustedComment(const std::string& packagePath) {
  return "timestamp:" + std::to_string(std::time(nullptr)) + "\tfile:" + BaseName(packagePath) +
         "\thashed";
}

// Reads and parses the secret key file and, when it is protected, gets its password.
bool LoadSecretKey(const std::string& path, const std::string& passwordFile,
                   minisign::SecretKey& key, std::string& error) {
  SecretBytes text;
  if (const int failure = minisign::ReadMinisignFile(path, text); failure != 0) {
    error = "cannot read secret key file " + path + ": " + std::strerror(failure);
    return false;
  }
  minisign::SecretKeyFile file;
  if (!minisign::ParseSecretKeyFile(text.view(), file, error)) {
    error = "bad secret key file " + path + ": " + error;
    return false;
  }
  SecretBytes password;
  if (file.encrypted && !(passwordFile.empty() ? ReadPasswordFromTerminal(
                                                     "Password for " + path + ": ", password, error)
                                               : ReadPasswordFile(passwordFile, password, error))) {
    return false;
  }
  if (!minisign::OpenSecretKey(file, password.view(), key, error)) {
    error = "secret key file " + path + ": " + error;
    return false;
  }
  return true;
}

// Writes `text` to `path` through a temporary sibling renamed into place.
bool WriteSignatureFile(const std::string& path, const std::string& text, std::string& error) {
  TempFileGuard temp(SiblingTempPath(path));
  UniqueDescriptor fd(
      OpenDescriptor(temp.path().c_str(), O_WRONLY | O_CREAT | O_TRUNC, kSignatureMode));
  bool ok = fd.get() >= 0;
  for (std::size_t done = 0; ok && done < text.size();) {
    const ssize_t wrote = write(fd.get(), text.data() + done, text.size() - done);
    ok = wrote > 0 || (wrote < 0 && errno == EINTR);
    if (wrote > 0) done += static_cast<std::size_t>(wrote);
  }
  ok = ok && fsync(fd.get()) == 0 && fd.Close() == 0 &&
       std::rename(temp.path().c_str(), path.c_str()) == 0;
  if (!ok) error = "cannot write signature file " + path + ": " + std::strerror(errno);
  return ok;
}

}  // namespace

std::string SignaturePath(const std::string& packagePath) { return packagePath + kSignatureSuffix; }

bool SignPackage(const std::string& packagePath, const std::string& secretKeyPath,
                 const std::string& passwordFile, std::string& error) {
  if (UniqueDescriptor probe(OpenDescriptor(packagePath.c_str(), O_RDONLY, 0)); probe.get() < 0) {
    error = "cannot read " + packagePath + ": " + std::strerror(errno);
    return false;  // before a password is asked for in vain
  }
  minisign::SecretKey key;
  minisign::Signature signature;
  return LoadSecretKey(secretKeyPath, passwordFile, key, error) &&
         minisign::SignFile(key, packagePath, TrustedComment(packagePath), kUntrustedComment,
                            signature, error) &&
         WriteSignatureFile(SignaturePath(packagePath), minisign::FormatSignature(signature),
                            error);
}

bool CheckPackageSignature(const std::string& packagePath, const std::string& publicKeyPath,
                           std::string& report, std::string& error, SignatureFacts* facts) {
  SecretBytes text;
  minisign::PublicKey key;
  if (const int failure = minisign::ReadMinisignFile(publicKeyPath, text); failure != 0) {
    error = "cannot read public key file " + publicKeyPath + ": " + std::strerror(failure);
    return false;
  }
  if (!minisign::ParsePublicKey(text.view(), key, error)) {
    error = "bad public key file " + publicKeyPath + ": " + error;
    return false;
  }
  const std::string signaturePath = SignaturePath(packagePath);
  minisign::Signature signature;
  if (const int failure = minisign::ReadMinisignFile(signaturePath, text); failure != 0) {
    error = failure == ENOENT
                ? "missing signature file " + signaturePath
                : "cannot read signature file " + signaturePath + ": " + std::strerror(failure);
    return false;
  }
  if (!minisign::ParseSignature(text.view(), signature, error)) {
    error = "bad signature file " + signaturePath + ": " + error;
    return false;
  }
  if (!minisign::VerifyFile(key, signature, packagePath, error)) {
    error = signaturePath + ": " + error;
    return false;
  }
  report = packagePath + ": signature ok, key " + minisign::KeyIdText(key.keyId) +
           ", trusted comment: " + signature.trustedComment;
  if (facts != nullptr) *facts = {minisign::KeyIdText(key.keyId), signature.trustedComment};
  return true;
}

}  // namespace tk
