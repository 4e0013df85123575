#include "Platform/TrustStore.h"

#include "Platform/Runtime.h"

#include <openssl/x509_vfy.h>

namespace tarvik {

void X509StoreDeleter::operator()(X509_STORE* store) const {
    X509_STORE_free(store);
}

std::shared_ptr<TrustStore> TrustStore::sharedInstance() {
    return Runtime::current().sharedInstance<TrustStore>();
}

void TrustStore::setLocations(std::string bundleFile, std::string folder) {
    std::lock_guard lock(mutex_);
    bundleFile_ = std::move(bundleFile);
    folder_ = std::move(folder);
    loaded_.reset();
}

X509StoreRef TrustStore::store() {
    std::lock_guard lock(mutex_);
    if (!loaded_) {
        X509StoreRef store(X509_STORE_new());
        if (!store) {
            return nullptr;
        }
        if (bundleFile_.empty() && folder_.empty()) {
            if (!X509_STORE_set_default_paths(store.get())) {
                return nullptr;
            }
        } else if ((!bundleFile_.empty() &&
                    !X509_STORE_load_file(store.get(), bundleFile_.c_str())) ||
                   (!folder_.empty() && !X509_STORE_load_path(store.get(), folder_.c_str()))) {
            return nullptr;
        }
        loaded_ = std::move(store);
    }
    // The store is shared by every verification; OpenSSL locks it internally.
    X509_STORE_up_ref(loaded_.get());
    return X509StoreRef(loaded_.get());
}

}  // namespace tarvik
