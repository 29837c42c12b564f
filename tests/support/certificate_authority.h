// A certificate authority that lives as long as a test, and the certificate of a server on
// loopback that it has signed.
#pragma once

#include <memory>
#include <openssl/ec.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>
#include <stdexcept>
#include <string>

namespace vantrell::tests {

template <auto release>
struct Release {
  void operator()(auto* object) const { release(object); }
};
using OwnedKey = std::unique_ptr<EVP_PKEY, Release<EVP_PKEY_free>>;
using OwnedCertificate = std::unique_ptr<X509, Release<X509_free>>;
using OwnedTlsContext = std::unique_ptr<SSL_CTX, Release<SSL_CTX_free>>;

class CertificateAuthority {
 public:
  CertificateAuthority() : key_(newKey()) {
    certificate_ = certificate("A test's authority", key_.get());
    extend(certificate_.get(), NID_basic_constraints, "critical,CA:TRUE");
    extend(certificate_.get(), NID_key_usage, "critical,keyCertSign");
    sign(certificate_.get());
  }

  /// The authority's own certificate, for those who shall trust it.
  std::string pem() const {
    return pemOf([&](BIO* out) { return PEM_write_bio_X509(out, certificate_.get()); });
  }

  /// What a server needs to be taken for `name`: an entry of subjectAltName, "IP:127.0.0.1".
  OwnedTlsContext server(const std::string& name = "IP:127.0.0.1") const {
    const auto [key, own] = signedServer(name);
    OwnedTlsContext context(SSL_CTX_new(TLS_server_method()));
    check(SSL_CTX_use_certificate(context.get(), own.get()) == 1);
    check(SSL_CTX_use_PrivateKey(context.get(), key.get()) == 1);
    return context;
  }
  /// The same as certificate and private key.
  std::pair<std::string, std::string> serverPem(const std::string& name) const {
    const auto [key, own] = signedServer(name);
    return {
        pemOf([&](BIO* out) { return PEM_write_bio_X509(out, own.get()); }), pemOf([&](BIO* out) {
          return PEM_write_bio_PrivateKey(out, key.get(), nullptr, nullptr, 0, nullptr, nullptr);
        })};
  }

 private:
  template <typename Write>
  static std::string pemOf(Write write) {
    const std::unique_ptr<BIO, Release<BIO_free>> memory(BIO_new(BIO_s_mem()));
    check(write(memory.get()) == 1);
    char* bytes = nullptr;
    const long size = BIO_get_mem_data(memory.get(), &bytes);
    return {bytes, static_cast<std::size_t>(size)};
  }
  std::pair<OwnedKey, OwnedCertificate> signedServer(const std::string& name) const {
    OwnedKey key = newKey();
    OwnedCertificate own = certificate("A test's server", key.get());
    extend(own.get(), NID_subject_alt_name, name);
    sign(own.get());
    return {std::move(key), std::move(own)};
  }
  static void check(bool isWell) {
    if (!isWell) throw std::runtime_error("OpenSSL does not make the certificates");
  }
  static OwnedKey newKey() {
    OwnedKey key(EVP_EC_gen("P-256"));
    check(key != nullptr);
    return key;
  }
  OwnedCertificate certificate(const std::string& name, EVP_PKEY* key) const {
    OwnedCertificate made(X509_new());
    X509_set_version(made.get(), X509_VERSION_3);
    static long serial = 0;
    ASN1_INTEGER_set(X509_get_serialNumber(made.get()), ++serial);
    X509_gmtime_adj(X509_getm_notBefore(made.get()), -3600);
    X509_gmtime_adj(X509_getm_notAfter(made.get()), 3600);
    X509_set_pubkey(made.get(), key);
    X509_NAME* subject = X509_get_subject_name(made.get());
    X509_NAME_add_entry_by_txt(subject, "CN", MBSTRING_ASC,
                               reinterpret_cast<const unsigned char*>(name.c_str()), -1, -1, 0);
    X509_set_issuer_name(made.get(),
                         certificate_ ? X509_get_subject_name(certificate_.get()) : subject);
    return made;
  }
  static void extend(X509* certificate, int kind, const std::string& value) {
    const std::unique_ptr<X509_EXTENSION, Release<X509_EXTENSION_free>> extension(
        X509V3_EXT_conf_nid(nullptr, nullptr, kind, value.c_str()));
    check(extension && X509_add_ext(certificate, extension.get(), -1) == 1);
  }
  void sign(X509* certificate) const {
    check(X509_sign(certificate, key_.get(), EVP_sha256()) > 0);
  }

  OwnedKey key_;
  OwnedCertificate certificate_;
};

}  // namespace vantrell::tests
