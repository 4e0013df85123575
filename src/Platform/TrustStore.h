#pragma once

#include <openssl/types.h>

#include <memory>
#include <mutex>
#include <string>

namespace tarvik {

struct X509StoreDeleter {
    void operator()(X509_STORE* store) const;
};
using X509StoreRef = std::unique_ptr<X509_STORE, X509StoreDeleter>;

// The certificate authorities that server chains are verified against: the system's default
// verify paths, unless the host names a PEM bundle file or a hashed certificate folder.
class TrustStore {
  public:
    static std::shared_ptr<TrustStore> sharedInstance();

    // Both empty: the system's default verify paths.
    void setLocations(std::string bundleFile, std::string folder);

    // A reference of the caller's own to the store, loaded once per set of locations; null
    // when a named location cannot be loaded.
    X509StoreRef store();

  private:
    std::mutex mutex_;
    std::string bundleFile_;
    std::string folder_;
    X509StoreRef loaded_;
};

}  // namespace tarvik
