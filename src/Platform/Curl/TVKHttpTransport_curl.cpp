// The transport over libcurl with OpenSSL. Every request gets a connection of its own (no
// session cache, so no resumed session skips the trust decision), and the server's chain is
// decided inside the handshake by the caller's trust delegate instead of curl's own check.

#include "Platform/TVKHttpTransport.h"

#include "Platform/ServerTrust.h"

#include <curl/curl.h>
#include <openssl/ssl.h>
#include <openssl/x509_vfy.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <memory>
#include <mutex>
#include <optional>

namespace tarvik {

namespace {

// Answers above this size are cut: the service's answers are small JSON documents.
constexpr std::size_t kMaximumResponseBodySize = 4 * 1024 * 1024;

struct FileCloser {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
struct EasyCleanup {
    void operator()(CURL* curl) const { curl_easy_cleanup(curl); }
};
struct SlistCleanup {
    void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};
struct UrlCleanup {
    void operator()(CURLU* url) const { curl_url_cleanup(url); }
};

// What the handshake callback needs, and what it found.
struct TrustContext {
    const ServerTrustDelegate* delegate = nullptr;
    std::string hostname;
    bool refused = false;
};

// The delegate's answer. The handler may outlive the handshake (a delegate may keep it), so
// the answer lives as long as the handler does; only the first answer given in time counts.
struct DelegateAnswer {
    std::mutex mutex;
    bool closed = false;
    std::optional<AuthChallengeDisposition> disposition;

    void give(AuthChallengeDisposition answer) {
        std::lock_guard lock(mutex);
        if (!closed && !disposition) {
            disposition = answer;
        }
    }
    // What was answered during the handshake; later answers are ignored.
    std::optional<AuthChallengeDisposition> close() {
        std::lock_guard lock(mutex);
        closed = true;
        return disposition;
    }
};

// The host of `url` as a certificate names it (no brackets around an IPv6 address).
std::optional<std::string> hostOf(const std::string& url) {
    std::unique_ptr<CURLU, UrlCleanup> handle(curl_url());
    char* host = nullptr;
    if (!handle || curl_url_set(handle.get(), CURLUPART_URL, url.c_str(), 0) != CURLUE_OK ||
        curl_url_get(handle.get(), CURLUPART_HOST, &host, 0) != CURLUE_OK) {
        return std::nullopt;
    }
    std::string text(host);
    curl_free(host);
    if (text.size() >= 2 && text.front() == '[' && text.back() == ']') {
        text = text.substr(1, text.size() - 2);
    }
    return text;
}

// OpenSSL calls this in place of its own chain verification.
int verifyServerChain(X509_STORE_CTX* storeContext, void* argument) {
    auto* context = static_cast<TrustContext*>(argument);
    std::optional<ServerTrust> trust =
        ServerTrust::fromStoreContext(storeContext, context->hostname);
    if (!trust) {
        X509_STORE_CTX_set_error(storeContext, X509_V_ERR_UNSPECIFIED);
        return 0;
    }
    auto answer = std::make_shared<DelegateAnswer>();
    AuthenticationChallenge challenge{AuthenticationMethodServerTrust, &*trust, context->hostname};
    (*context->delegate)(challenge, [answer](AuthChallengeDisposition disposition,
                                             const ServerTrust*) { answer->give(disposition); });
    // A delegate that has not answered by now leaves the connection abandoned.
    AuthChallengeDisposition disposition =
        answer->close().value_or(AuthChallengeCancelAuthenticationChallenge);
    if (disposition == AuthChallengeUseCredential) {
        return 1;
    }
    if (disposition == AuthChallengePerformDefaultHandling) {
        std::optional<TrustEvaluation> evaluation = trust->evaluate();
        if (evaluation && evaluation->trusted) {
            return 1;
        }
        X509_STORE_CTX_set_error(storeContext,
                                 evaluation ? evaluation->error : X509_V_ERR_UNSPECIFIED);
        return 0;
    }
    context->refused = true;
    X509_STORE_CTX_set_error(storeContext, X509_V_ERR_APPLICATION_VERIFICATION);
    return 0;
}

CURLcode configureSslContext(CURL*, void* sslContext, void* argument) {
    SSL_CTX_set_cert_verify_callback(static_cast<SSL_CTX*>(sslContext), verifyServerChain,
                                     argument);
    return CURLE_OK;
}

// A header line as curl takes it: "Name;" sends an empty value ("Name:" would remove the
// header). None when the name or value would break the header block.
std::optional<std::string> headerLine(const std::string& name, const std::string& value) {
    auto breaksLine = [](char c) { return c == '\r' || c == '\n' || c == '\0'; };
    if (name.empty() || name.find_first_of(":; \t") != std::string::npos ||
        std::ranges::any_of(name, breaksLine) || std::ranges::any_of(value, breaksLine)) {
        return std::nullopt;
    }
    return value.empty() ? name + ";" : name + ": " + value;
}

using HeaderList = std::unique_ptr<curl_slist, SlistCleanup>;

// Appends a copy of `line`; false, with the list unchanged, when there is no memory for it.
bool append(HeaderList& list, const std::string& line) {
    curl_slist* head = curl_slist_append(list.get(), line.c_str());
    if (!head) {
        return false;
    }
    list.release();
    list.reset(head);
    return true;
}

std::size_t readBody(char* buffer, std::size_t size, std::size_t count, void* file) {
    std::size_t read = std::fread(buffer, size, count, static_cast<std::FILE*>(file));
    if (read == 0 && std::ferror(static_cast<std::FILE*>(file))) {
        return CURL_READFUNC_ABORT;
    }
    return read;
}

std::size_t writeBody(char* bytes, std::size_t size, std::size_t count, void* body) {
    auto* data = static_cast<Data*>(body);
    std::size_t length = size * count;
    std::size_t room = kMaximumResponseBodySize - std::min(kMaximumResponseBodySize, data->size());
    data->insert(data->end(), bytes, bytes + std::min(length, room));
    return length;
}

class CurlHttpTransport : public TVKHttpTransport {
  public:
    CurlHttpTransport() {
        static std::once_flag initialised;
        std::call_once(initialised, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
    }

    HttpResult perform(const HttpRequest& request,
                       const ServerTrustDelegate& trustDelegate) override {
        std::optional<std::string> host = hostOf(request.url);
        if (!host) {
            return HttpResult::noResponse("unsupported URL: " + request.url);
        }
        std::unique_ptr<CURL, EasyCleanup> curl(curl_easy_init());
        if (!curl) {
            return HttpResult::noResponse("cannot make a connection handle");
        }
        CURL* handle = curl.get();
        char errorBuffer[CURL_ERROR_SIZE] = {};
        curl_easy_setopt(handle, CURLOPT_ERRORBUFFER, errorBuffer);
        curl_easy_setopt(handle, CURLOPT_URL, request.url.c_str());
        curl_easy_setopt(handle, CURLOPT_NOSIGNAL, 1L);
        curl_easy_setopt(handle, CURLOPT_PROTOCOLS_STR, "https,http");
        curl_easy_setopt(handle, CURLOPT_SSL_SESSIONID_CACHE, 0L);

        // The trust decision replaces curl's certificate check, so curl needs no CA bundle of
        // its own; host-name checking stays on as a second guard.
        TrustContext trust{&trustDelegate, *host};
        curl_easy_setopt(handle, CURLOPT_SSL_VERIFYPEER, 1L);
        curl_easy_setopt(handle, CURLOPT_SSL_VERIFYHOST, 2L);
        curl_easy_setopt(handle, CURLOPT_CAINFO, static_cast<char*>(nullptr));
        curl_easy_setopt(handle, CURLOPT_CAPATH, static_cast<char*>(nullptr));
        // A curl whose TLS library takes no handshake hook would connect without the
        // delegate's decision: such a connection is not made at all.
        if (curl_easy_setopt(handle, CURLOPT_SSL_CTX_FUNCTION, configureSslContext) != CURLE_OK ||
            curl_easy_setopt(handle, CURLOPT_SSL_CTX_DATA, &trust) != CURLE_OK) {
            return HttpResult::noResponse("this curl cannot decide on the server's trust");
        }

        // The time-out is an idle time-out: a slow upload of a large body that keeps moving is
        // not cut off. curl counts idleness in whole seconds.
        double timeout = std::max(1.0, request.timeoutInterval);
        curl_easy_setopt(handle, CURLOPT_CONNECTTIMEOUT_MS, std::lround(timeout * 1000));
        curl_easy_setopt(handle, CURLOPT_LOW_SPEED_LIMIT, 1L);
        curl_easy_setopt(handle, CURLOPT_LOW_SPEED_TIME, std::lround(std::ceil(timeout)));

        HeaderList headers;
        for (const auto& [name, value] : request.headers) {
            std::optional<std::string> line = headerLine(name, value);
            if (!line) {
                return HttpResult::noResponse("invalid request header " + name);
            }
            if (!append(headers, *line)) {
                return HttpResult::noResponse("no memory for the request headers");
            }
        }
        // The body is sent at once instead of waiting for a "100 Continue".
        if (!append(headers, "Expect:")) {
            return HttpResult::noResponse("no memory for the request headers");
        }
        curl_easy_setopt(handle, CURLOPT_HTTPHEADER, headers.get());

        std::unique_ptr<std::FILE, FileCloser> body;
        if (request.bodyFilePath) {
            body.reset(std::fopen(request.bodyFilePath->c_str(), "rb"));
            if (!body || std::fseek(body.get(), 0, SEEK_END) != 0) {
                return HttpResult::noResponse("cannot read the request body " +
                                              *request.bodyFilePath);
            }
            curl_off_t size = std::ftell(body.get());
            if (size < 0) {
                return HttpResult::noResponse("cannot read the request body " +
                                              *request.bodyFilePath);
            }
            std::rewind(body.get());
            curl_easy_setopt(handle, CURLOPT_POST, 1L);
            curl_easy_setopt(handle, CURLOPT_READFUNCTION, readBody);
            curl_easy_setopt(handle, CURLOPT_READDATA, body.get());
            curl_easy_setopt(handle, CURLOPT_POSTFIELDSIZE_LARGE, size);
        } else if (request.method == "POST") {
            // Without a body curl would send a GET.
            curl_easy_setopt(handle, CURLOPT_POSTFIELDS, "");
        }
        if (request.method != "GET" && request.method != "POST") {
            curl_easy_setopt(handle, CURLOPT_CUSTOMREQUEST, request.method.c_str());
        }

        Data responseBody;
        curl_easy_setopt(handle, CURLOPT_WRITEFUNCTION, writeBody);
        curl_easy_setopt(handle, CURLOPT_WRITEDATA, &responseBody);

        CURLcode result = curl_easy_perform(handle);
        if (result != CURLE_OK) {
            if (trust.refused) {
                return HttpResult::noResponse("the server's trust was refused for " + *host);
            }
            std::string reason = errorBuffer[0] ? errorBuffer : curl_easy_strerror(result);
            return HttpResult::noResponse(reason);
        }
        long status = 0;
        curl_easy_getinfo(handle, CURLINFO_RESPONSE_CODE, &status);
        return HttpResult::answer(status, std::move(responseBody));
    }
};

}  // namespace

std::unique_ptr<TVKHttpTransport> makePlatformHttpTransport() {
    return std::make_unique<CurlHttpTransport>();
}

}  // namespace tarvik
