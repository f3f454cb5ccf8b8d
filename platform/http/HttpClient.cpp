#include "platform/http/HttpClient.h"

#include <curl/curl.h>
#include <fcntl.h>
#include <pthread.h>
#include <signal.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <deque>
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
// Like a browser: a few transfers per host at once, the rest wait their turn and
// then reuse those connections. Small servers serve a handful at a time. The
// queue is ours: libcurl 7.88 can leave its own waiting transfers parked until
// the next timeout when a cached connection turns out dead.
constexpr std::size_t kMaxTransfersPerHost = 6;

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

struct Transfer {
    std::string hostKey;  // scheme://host:port, "" when the URL does not parse
    HttpRequest request;
    HttpClient::Completion completion;
    HttpResponse response;
    EasyHandle easy;
    Slist headers;
    bool tooLarge = false;
    bool retriedStale = false;
    char errorBuffer[CURL_ERROR_SIZE] = {};
};

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
    std::thread worker;

    // Worker-only state.
    struct Host {
        std::size_t active = 0;
        std::deque<std::unique_ptr<Transfer>> waiting;
    };
    std::unordered_map<std::string, Host> hosts;
    std::unordered_map<Transfer*, std::unique_ptr<Transfer>> running;

    void startLocked();
    void run();
    void admit(std::unique_ptr<Transfer> t);
    bool start(std::unique_ptr<Transfer> t);
    bool release(const std::string& hostKey);
    bool retryOnFreshConnection(Transfer& t, CURLcode result);
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
    curl_easy_setopt(e, CURLOPT_NOSIGNAL, 1L);
    // A resolver thread still waiting on DNS must not hold up shutdown.
    curl_easy_setopt(e, CURLOPT_QUICK_EXIT, 1L);
    curl_easy_setopt(e, CURLOPT_SOCKOPTFUNCTION, &closeOnExec);
    curl_easy_setopt(e, CURLOPT_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(e, CURLOPT_REDIR_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(e, CURLOPT_FOLLOWLOCATION, 1L);
    curl_easy_setopt(e, CURLOPT_MAXREDIRS, kMaxRedirects);
    curl_easy_setopt(e, CURLOPT_SSL_VERIFYPEER, 1L);
    curl_easy_setopt(e, CURLOPT_SSL_VERIFYHOST, 2L);
    curl_easy_setopt(e, CURLOPT_TIMEOUT_MS, static_cast<long>(r.timeout.count()));
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
    loop.post(std::move(task));
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
    multi = curl_multi_init();
    if (!multi) throw std::runtime_error("curl_multi_init failed");
    // The worker inherits this mask: SIGPIPE stays blocked there and only there,
    // so the host's own dispositions are left alone.
    sigset_t block, old;
    sigemptyset(&block);
    sigaddset(&block, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &block, &old);
    try {
        worker = std::thread([this] { run(); });
    } catch (...) {
        pthread_sigmask(SIG_SETMASK, &old, nullptr);
        curl_multi_cleanup(multi);
        multi = nullptr;
        throw;
    }
    pthread_sigmask(SIG_SETMASK, &old, nullptr);
}

namespace {

std::string hostKeyOf(const std::string& url) {
    CURLU* u = curl_url();
    if (!u) return "";
    std::string key;
    if (curl_url_set(u, CURLUPART_URL, url.c_str(), 0) == CURLUE_OK) {
        for (CURLUPart part : {CURLUPART_SCHEME, CURLUPART_HOST, CURLUPART_PORT}) {
            char* value = nullptr;
            // The port is filled in from the scheme when the URL has none.
            if (curl_url_get(u, part, &value, part == CURLUPART_PORT ? CURLU_DEFAULT_PORT : 0) == CURLUE_OK) {
                key += value;
                curl_free(value);
            }
            key += '|';
        }
    }
    curl_url_cleanup(u);
    return key;
}

}  // namespace

void HttpClient::Impl::admit(std::unique_ptr<Transfer> t) {
    t->hostKey = t->request.lane + '|' + hostKeyOf(t->request.url);
    Host& host = hosts[t->hostKey];
    if (host.active >= kMaxTransfersPerHost) {
        host.waiting.push_back(std::move(t));
        return;
    }
    ++host.active;
    const std::string key = t->hostKey;
    if (!start(std::move(t))) release(key);  // a failed start frees its slot at once
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

// Hands a freed slot to the next in line for that host; true when one started.
bool HttpClient::Impl::release(const std::string& hostKey) {
    auto it = hosts.find(hostKey);
    if (it == hosts.end()) return false;
    Host& host = it->second;
    --host.active;
    bool started = false;
    while (host.active < kMaxTransfersPerHost && !host.waiting.empty()) {
        std::unique_ptr<Transfer> next = std::move(host.waiting.front());
        host.waiting.pop_front();
        ++host.active;
        if (start(std::move(next))) {
            started = true;
        } else {
            --host.active;
        }
    }
    if (host.active == 0 && host.waiting.empty()) hosts.erase(it);
    return started;
}

// A kept-alive connection the server reset just as we reused it fails with
// nothing received; libcurl retries that only when the connection ends
// cleanly. Like a browser, try such a GET once more on a new connection.
bool HttpClient::Impl::retryOnFreshConnection(Transfer& t, CURLcode result) {
    if (t.retriedStale || t.request.method != "GET") return false;
    if (result != CURLE_GOT_NOTHING && result != CURLE_RECV_ERROR && result != CURLE_SEND_ERROR) return false;
    long connects = -1;
    long headerBytes = -1;
    curl_easy_getinfo(t.easy.get(), CURLINFO_NUM_CONNECTS, &connects);
    curl_easy_getinfo(t.easy.get(), CURLINFO_HEADER_SIZE, &headerBytes);
    // Only a reused connection (no new connect) that gave back nothing at all.
    if (connects != 0 || headerBytes != 0 || !t.response.body.empty()) return false;
    t.retriedStale = true;
    t.errorBuffer[0] = '\0';
    curl_easy_setopt(t.easy.get(), CURLOPT_FRESH_CONNECT, 1L);
    return curl_multi_add_handle(multi, t.easy.get()) == CURLM_OK;
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
        if (stop) {
            for (auto& t : batch) hosts[""].waiting.push_back(std::move(t));
            break;
        }
        for (auto& t : batch) admit(std::move(t));

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
                if (retryOnFreshConnection(*it->second, result)) {
                    started = true;
                    continue;
                }
                std::unique_ptr<Transfer> done = std::move(it->second);
                running.erase(it);
                const std::string hostKey = done->hostKey;
                finish(std::move(done), result);
                started = release(hostKey) || started;
            }
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
        t->response.errorText = "the HTTP client was shut down";
        deliver(std::move(t));
    };
    for (auto& [key, t] : running) end(std::move(t));
    running.clear();
    for (auto& [key, host] : hosts)
        for (auto& t : host.waiting) end(std::move(t));
    hosts.clear();
    discardPendingSigpipe();
}

HttpClient& HttpClient::shared() {
    // A static with a destructor: at exit the worker is stopped and joined
    // before libcurl's and OpenSSL's exit handlers (registered earlier, in the
    // constructor) tear down what it uses.
    static HttpClient client(MainLoop::shared());
    return client;
}

HttpClient::HttpClient(MainLoop& loop) : impl_(nullptr) {
    globalInitOnce();
    impl_ = new Impl(loop);
}

HttpClient::~HttpClient() {
    {
        std::lock_guard lock(impl_->mutex);
        impl_->stopping = true;
        if (impl_->multi) curl_multi_wakeup(impl_->multi);
    }
    if (impl_->worker.joinable()) impl_->worker.join();
    // Sends that raced with the stop never reached the worker.
    for (auto& t : impl_->incoming) {
        t->response.errorText = "the HTTP client was shut down";
        impl_->deliver(std::move(t));
    }
    if (impl_->multi) curl_multi_cleanup(impl_->multi);
    delete impl_;
}

void HttpClient::send(HttpRequest request, Completion completion) {
    auto t = std::make_unique<Transfer>();
    t->request = std::move(request);
    t->completion = std::move(completion);
    impl_->inFlight->fetch_add(1);
    std::lock_guard lock(impl_->mutex);
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
        t->response.errorText = "the HTTP client was shut down";
        impl_->deliver(std::move(t));
        return;
    }
    impl_->incoming.push_back(std::move(t));
    curl_multi_wakeup(impl_->multi);
}

std::size_t HttpClient::inFlight() const { return impl_->inFlight->load(); }

}  // namespace quov::platform
