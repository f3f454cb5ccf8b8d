#include "platform/http/HttpClient.h"
#include "platform/http/UrlSyntax.h"
#include "platform/runtime/Text.h"

#include <curl/curl.h>
#include <fcntl.h>
#include <pthread.h>
#include <signal.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <cctype>
#include <cstdlib>
#include <deque>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <unordered_map>
#include <vector>

namespace quov::platform {
namespace {

// Bounded so a redirect loop ends; generous enough for tracker chains.
constexpr long kMaxRedirects = 10;
// Backstop for the worker's wait: a missed wakeup costs at most this much.
constexpr int kPollBackstopMs = 1000;
constexpr const char* kUserAgent = "QuovSDK/1.0";
constexpr const char* kShutDownText = "the HTTP client was shut down";

void globalInitOnce() {
    static std::once_flag once;
    std::call_once(once, [] {
        if (curl_global_init(CURL_GLOBAL_DEFAULT) != CURLE_OK)
            throw std::runtime_error("curl_global_init failed");
    });
}

struct EasyDeleter {
    void operator()(CURL* h) const { curl_easy_cleanup(h); }
};
struct SlistDeleter {
    void operator()(curl_slist* l) const { curl_slist_free_all(l); }
};
using EasyHandle = std::unique_ptr<CURL, EasyDeleter>;
using Slist = std::unique_ptr<curl_slist, SlistDeleter>;

// Our sockets must not reach programs the host starts.
int closeOnExec(void*, curl_socket_t fd, curlsocktype) {
    const int flags = ::fcntl(fd, F_GETFD);
    if (flags >= 0) ::fcntl(fd, F_SETFD, flags | FD_CLOEXEC);
    return CURL_SOCKOPT_OK;
}

bool hasLineBreak(const std::string& s) { return s.find_first_of("\r\n") != std::string::npos; }

// A SIGPIPE raised by a write in this thread (TLS writes can raise one) is
// blocked here and would stay pending; take it off so it never reaches anyone.
void discardPendingSigpipe() {
    sigset_t pending;
    sigemptyset(&pending);
    if (sigpending(&pending) != 0 || !sigismember(&pending, SIGPIPE)) return;
    sigset_t only;
    sigemptyset(&only);
    sigaddset(&only, SIGPIPE);
    timespec zero{0, 0};
    while (sigtimedwait(&only, nullptr, &zero) < 0 && errno == EINTR) {}
}

struct ShareDeleter {
    void operator()(CURLSH* h) const { curl_share_cleanup(h); }
};
using ShareHandle = std::unique_ptr<CURLSH, ShareDeleter>;

// "scheme|host|port", lower case, the port filled in from the scheme; "" when
// the URL does not parse.
std::string originOf(const char* url) {
    const auto parts = parseURL(url);
    if (!parts || !parts->scheme || !parts->host || !parts->port) return "";
    return asciiLower(*parts->scheme) + '|' + asciiLower(*parts->host) + '|' + *parts->port + '|';
}

struct Transfer {
    std::string origin;  // of request.url, for requests that stay on it
    HttpRequest request;
    HttpClient::Completion completion;
    HttpClient::Delivery delivery = HttpClient::Delivery::MainLoop;
    HttpResponse response;
    EasyHandle easy;
    Slist headers;
    bool tooLarge = false;
    bool leftOrigin = false;
    char errorBuffer[CURL_ERROR_SIZE] = {};
};

// Runs after each connect, before a request is written: the one place a
// followed redirect can still be stopped before its headers and body go out.
int checkOrigin(void* user, char*, char*, int, int) {
    auto* t = static_cast<Transfer*>(user);
    char* now = nullptr;
    if (curl_easy_getinfo(t->easy.get(), CURLINFO_EFFECTIVE_URL, &now) != CURLE_OK || !now ||
        t->origin.empty() || originOf(now) != t->origin) {
        t->leftOrigin = true;
        return CURL_PREREQFUNC_ABORT;
    }
    return CURL_PREREQFUNC_OK;
}

}  // namespace

struct HttpClient::Impl {
    explicit Impl(MainLoop& l) : loop(l), inFlight(std::make_shared<std::atomic<std::size_t>>(0)) {}

    MainLoop& loop;
    // Shared with the posted completions, which may outlive the client.
    std::shared_ptr<std::atomic<std::size_t>> inFlight;

    std::mutex mutex;  // guards incoming, stopping, multi's creation and the thread
    std::vector<std::unique_ptr<Transfer>> incoming;
    bool stopping = false;
    CURLM* multi = nullptr;
    // DNS answers and TLS sessions only: neither carries a request, so sharing
    // them never makes one request ride on another's connection.
    ShareHandle share;
    std::jthread worker;

    // Worker-only state. Every running transfer holds one connection.
    std::deque<std::unique_ptr<Transfer>> waiting;
    std::unordered_map<Transfer*, std::unique_ptr<Transfer>> running;

    void startLocked();
    void run();
    bool startWaiting();
    bool start(std::unique_ptr<Transfer> t);
    void shutDownAll();
    void deliver(std::unique_ptr<Transfer> t);
    bool configure(Transfer& t);
    void finish(std::unique_ptr<Transfer> t, CURLcode result);
};

namespace {

size_t onBody(char* data, size_t size, size_t count, void* user) {
    auto* t = static_cast<Transfer*>(user);
    const size_t n = size * count;
    // libcurl's own size limit trusts Content-Length; a chunked body only stops here.
    if (t->response.body.size() + n > t->request.maxBodyBytes) {
        t->tooLarge = true;
        return 0;
    }
    t->response.body.append(data, n);
    return n;
}

}  // namespace

bool HttpClient::Impl::configure(Transfer& t) {
    const HttpRequest& r = t.request;
    for (const auto& [name, value] : r.headers) {
        if (hasLineBreak(name) || hasLineBreak(value)) {
            t.response.errorText = "header \"" + name + "\" holds a line break";
            return false;
        }
        // "Name;" is libcurl's way to send a header with an empty value;
        // "Name:" would remove it instead.
        std::string line = value.empty() ? name + ";" : name + ": " + value;
        curl_slist* grown = curl_slist_append(t.headers.get(), line.c_str());
        if (!grown) {
            t.response.errorText = "out of memory";
            return false;
        }
        if (!t.headers) t.headers.reset(grown);
    }

    t.easy.reset(curl_easy_init());
    CURL* e = t.easy.get();
    if (!e) {
        t.response.errorText = "curl_easy_init failed";
        return false;
    }
    curl_easy_setopt(e, CURLOPT_URL, r.url.c_str());
    curl_easy_setopt(e, CURLOPT_PRIVATE, &t);
    // One request, one new connection, closed afterwards: libcurl resends a
    // request on its own only when a reused connection dies, which it then never is.
    curl_easy_setopt(e, CURLOPT_FRESH_CONNECT, 1L);
    curl_easy_setopt(e, CURLOPT_FORBID_REUSE, 1L);
    curl_easy_setopt(e, CURLOPT_PATH_AS_IS, 1L);
    if (share) curl_easy_setopt(e, CURLOPT_SHARE, share.get());
    curl_easy_setopt(e, CURLOPT_NOSIGNAL, 1L);
    // A resolver thread still waiting on DNS must not hold up shutdown.
    curl_easy_setopt(e, CURLOPT_QUICK_EXIT, 1L);
    curl_easy_setopt(e, CURLOPT_SOCKOPTFUNCTION, &closeOnExec);
    curl_easy_setopt(e, CURLOPT_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(e, CURLOPT_REDIR_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(e, CURLOPT_FOLLOWLOCATION, 1L);
    curl_easy_setopt(e, CURLOPT_MAXREDIRS, kMaxRedirects);
    if (!r.crossOriginRedirects) {
        t.origin = originOf(r.url.c_str());
        curl_easy_setopt(e, CURLOPT_PREREQFUNCTION, &checkOrigin);
        curl_easy_setopt(e, CURLOPT_PREREQDATA, &t);
    }
    curl_easy_setopt(e, CURLOPT_SSL_VERIFYPEER, 1L);
    curl_easy_setopt(e, CURLOPT_SSL_VERIFYHOST, 2L);
    // libcurl reads 0 as "no limit".
    curl_easy_setopt(e, CURLOPT_TIMEOUT_MS, std::max<long>(1, static_cast<long>(r.timeout.count())));
    curl_easy_setopt(e, CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(r.connectTimeout.count()));
    curl_easy_setopt(e, CURLOPT_MAXFILESIZE_LARGE, static_cast<curl_off_t>(r.maxBodyBytes));
    curl_easy_setopt(e, CURLOPT_USERAGENT, kUserAgent);
    curl_easy_setopt(e, CURLOPT_WRITEFUNCTION, onBody);
    curl_easy_setopt(e, CURLOPT_WRITEDATA, &t);
    curl_easy_setopt(e, CURLOPT_ERRORBUFFER, t.errorBuffer);
    if (t.headers) curl_easy_setopt(e, CURLOPT_HTTPHEADER, t.headers.get());
    if (r.method == "GET") {
        curl_easy_setopt(e, CURLOPT_HTTPGET, 1L);
    } else if (r.method == "POST") {
        curl_easy_setopt(e, CURLOPT_POST, 1L);
        curl_easy_setopt(e, CURLOPT_POSTFIELDS, t.request.body.data());
        curl_easy_setopt(e, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(r.body.size()));
    } else {
        t.response.errorText = "unsupported method " + r.method;
        return false;
    }
    return true;
}

void HttpClient::Impl::deliver(std::unique_ptr<Transfer> t) {
    // Only the answer travels; the easy handle is cleaned up here, on the
    // worker, after the completion is already on its way.
    auto task = [completion = std::move(t->completion), response = std::move(t->response),
                 counter = inFlight]() mutable {
        counter->fetch_sub(1);
        if (completion) completion(std::move(response));
    };
    if (t->delivery == HttpClient::Delivery::MainLoop) {
        loop.post(std::move(task));
        return;
    }
    try {
        task();
    } catch (...) {
        // The worker serves every other request: a careless completion must not end it.
    }
}

void HttpClient::Impl::finish(std::unique_ptr<Transfer> t, CURLcode result) {
    HttpResponse& resp = t->response;
    CURL* e = t->easy.get();
    long status = 0;
    curl_easy_getinfo(e, CURLINFO_RESPONSE_CODE, &status);
    resp.status = status;
    if (result == CURLE_OK) {
        resp.transportOk = true;
        char* type = nullptr;
        if (curl_easy_getinfo(e, CURLINFO_CONTENT_TYPE, &type) == CURLE_OK && type)
            resp.contentType = type;
    } else if (t->leftOrigin) {
        resp.errorText = "a redirect to another origin was refused";
    } else if (t->tooLarge || result == CURLE_FILESIZE_EXCEEDED) {
        resp.errorText = "response body larger than " + std::to_string(t->request.maxBodyBytes) +
                         " bytes";
    } else {
        resp.errorText = curl_easy_strerror(result);
        if (t->errorBuffer[0]) {
            resp.errorText += ": ";
            resp.errorText += t->errorBuffer;
        }
    }
    if (!resp.transportOk) resp.body.clear();
    deliver(std::move(t));
}

void HttpClient::Impl::startLocked() {
    share.reset(curl_share_init());
    if (!share) throw std::runtime_error("curl_share_init failed");
    // Used by the worker thread alone, so no lock callbacks.
    curl_share_setopt(share.get(), CURLSHOPT_SHARE, CURL_LOCK_DATA_DNS);
    curl_share_setopt(share.get(), CURLSHOPT_SHARE, CURL_LOCK_DATA_SSL_SESSION);
    multi = curl_multi_init();
    if (!multi) throw std::runtime_error("curl_multi_init failed");
    // The worker inherits this mask: SIGPIPE stays blocked there and only there,
    // so the host's own dispositions are left alone.
    sigset_t block, old;
    sigemptyset(&block);
    sigaddset(&block, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &block, &old);
    try {
        worker = std::jthread([this] {
            try {
                run();
            } catch (...) {
                // A worker that cannot go on fails what it holds and every later
                // send, instead of taking the host down.
                {
                    std::lock_guard lock(mutex);
                    stopping = true;
                }
                shutDownAll();
            }
        });
    } catch (...) {
        pthread_sigmask(SIG_SETMASK, &old, nullptr);
        curl_multi_cleanup(multi);
        multi = nullptr;
        throw;
    }
    pthread_sigmask(SIG_SETMASK, &old, nullptr);
}

bool HttpClient::Impl::start(std::unique_ptr<Transfer> t) {
    if (!configure(*t) || curl_multi_add_handle(multi, t->easy.get()) != CURLM_OK) {
        if (t->response.errorText.empty()) t->response.errorText = "could not start the request";
        deliver(std::move(t));
        return false;
    }
    Transfer* key = t.get();
    running.emplace(key, std::move(t));
    return true;
}

// Fills free connection slots from the queue, oldest first; true when one started.
bool HttpClient::Impl::startWaiting() {
    bool started = false;
    while (running.size() < kMaxOpenConnections && !waiting.empty()) {
        std::unique_ptr<Transfer> next = std::move(waiting.front());
        waiting.pop_front();
        started = start(std::move(next)) || started;
    }
    return started;
}

void HttpClient::Impl::run() {
    for (;;) {
        std::vector<std::unique_ptr<Transfer>> batch;
        bool stop;
        {
            std::lock_guard lock(mutex);
            batch.swap(incoming);
            stop = stopping;
        }
        for (auto& t : batch) waiting.push_back(std::move(t));
        if (stop) break;
        startWaiting();

        // Drive libcurl until it has nothing more to say: a finished transfer
        // may start a queued one, which needs its own first push before we
        // sleep, and every push may finish more.
        bool started = true;
        while (started) {
            started = false;
            int stillRunning = 0;
            curl_multi_perform(multi, &stillRunning);
            int queued = 0;
            while (CURLMsg* msg = curl_multi_info_read(multi, &queued)) {
                if (msg->msg != CURLMSG_DONE) continue;
                CURL* e = msg->easy_handle;
                const CURLcode result = msg->data.result;
                Transfer* key = nullptr;
                curl_easy_getinfo(e, CURLINFO_PRIVATE, reinterpret_cast<char**>(&key));
                curl_multi_remove_handle(multi, e);
                auto it = running.find(key);
                if (it == running.end()) continue;
                std::unique_ptr<Transfer> done = std::move(it->second);
                running.erase(it);
                finish(std::move(done), result);
            }
            started = startWaiting();
        }
        discardPendingSigpipe();
        curl_multi_poll(multi, nullptr, 0, kPollBackstopMs, nullptr);
    }
    shutDownAll();
}

// Whatever is left ends with a transport error, so every caller still hears
// back exactly once.
void HttpClient::Impl::shutDownAll() {
    auto end = [this](std::unique_ptr<Transfer> t) {
        if (t->easy) curl_multi_remove_handle(multi, t->easy.get());
        t->response = HttpResponse{};
        t->response.errorText = kShutDownText;
        t->response.shutDown = true;
        deliver(std::move(t));
    };
    for (auto& [key, t] : running) end(std::move(t));
    running.clear();
    for (auto& t : waiting) end(std::move(t));
    waiting.clear();
    discardPendingSigpipe();
}

HttpClient::HttpClient(MainLoop& loop) : impl_(nullptr) {
    globalInitOnce();
    impl_ = new Impl(loop);
}

void HttpClient::shutDown() {
    {
        std::lock_guard lock(impl_->mutex);
        impl_->stopping = true;
        if (impl_->multi) curl_multi_wakeup(impl_->multi);
    }
    if (impl_->worker.joinable()) impl_->worker.join();
    // Sends that raced with the stop never reached the worker.
    std::vector<std::unique_ptr<Transfer>> late;
    {
        std::lock_guard lock(impl_->mutex);
        late.swap(impl_->incoming);
    }
    for (auto& t : late) {
        t->response.errorText = kShutDownText;
        t->response.shutDown = true;
        impl_->deliver(std::move(t));
    }
}

HttpClient::~HttpClient() {
    shutDown();
    if (impl_->multi) curl_multi_cleanup(impl_->multi);
    impl_->share.reset();
    delete impl_;
}

void HttpClient::send(HttpRequest request, Completion completion) {
    send(std::move(request), std::move(completion), Delivery::MainLoop);
}

void HttpClient::send(HttpRequest request, Completion completion, Delivery delivery) {
    auto t = std::make_unique<Transfer>();
    t->request = std::move(request);
    t->completion = std::move(completion);
    t->delivery = delivery;
    impl_->inFlight->fetch_add(1);
    std::unique_lock lock(impl_->mutex);
    if (!impl_->stopping && !impl_->worker.joinable()) {
        try {
            impl_->startLocked();
        } catch (const std::exception& e) {
            t->response.errorText = e.what();
            impl_->deliver(std::move(t));
            return;
        }
    }
    if (impl_->stopping) {
        t->response.errorText = kShutDownText;
        t->response.shutDown = true;
        impl_->deliver(std::move(t));
        return;
    }
    // Only the send that fills an empty queue wakes the worker, which takes the
    // whole queue at once; the wake happens unlocked so the worker, woken, does
    // not block on our lock. The multi handle lives as long as the client.
    const bool wake = impl_->incoming.empty();
    impl_->incoming.push_back(std::move(t));
    CURLM* multi = impl_->multi;
    lock.unlock();
    if (wake) curl_multi_wakeup(multi);
}

std::size_t HttpClient::inFlight() const { return impl_->inFlight->load(); }

}  // namespace quov::platform
