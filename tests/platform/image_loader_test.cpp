#include "platform/ImageLoader.h"

#include "support/TestImages.h"
#include "support/TestServer.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

using namespace std::chrono_literals;
using quov::platform::ImageLoader;
using quov::platform::ImagePtr;
using quov::test::Answer;

namespace {

Answer png(int side, std::uint32_t colour = 0x3366ccff) {
    return Answer{200, "image/png",
                  quov::test::encodePNG(side, side, [colour](int, int) { return colour; })};
}

class ImageLoaderTest : public ::testing::Test {
protected:
    // Loads each URL, all before the loop runs, and returns what each caller got.
    std::vector<ImagePtr> loadAll(ImageLoader& loader,
                                  const std::vector<std::optional<std::string>>& urls) {
        std::vector<ImagePtr> images(urls.size());
        std::vector<int> answers(urls.size(), 0);
        std::size_t got = 0;
        for (std::size_t i = 0; i < urls.size(); ++i)
            loader.load(urls[i], [&, i](ImagePtr image) {
                images[i] = std::move(image);
                ++answers[i];
                ++got;
            });
        EXPECT_EQ(got, 0u) << "answers must come through the loop, never inline";
        EXPECT_TRUE(loop_.runUntil([&] { return got == urls.size(); }, 20s));
        loop_.drain();
        for (std::size_t i = 0; i < urls.size(); ++i)
            EXPECT_EQ(answers[i], 1) << urls[i].value_or("(null)");
        return images;
    }
    ImagePtr load(ImageLoader& loader, const std::string& url) { return loadAll(loader, {url})[0]; }

    quov::MainLoop loop_;
    quov::test::TestServer server_;
    quov::platform::HttpClient http_{loop_};
};

TEST_F(ImageLoaderTest, AnySuccessfulAnswerWithImageBytesGivesAnImage) {
    struct Case {
        const char* path;
        Answer answer;
        bool image;
    };
    const std::vector<Case> cases = {
        {"/ok", png(4), true},
        {"/octet-stream", Answer{200, "application/octet-stream", png(4).body}, true},
        {"/no-type", Answer{200, "", png(4).body}, true},
        {"/non-authoritative", Answer{203, "image/png", png(4).body}, true},
        {"/chunked", Answer{200, "image/png", png(4).body, 0ms, true}, true},
        {"/no-content", Answer::empty(204), false},
        {"/missing", Answer{404, "image/png", png(4).body}, false},
        {"/error", Answer{500, "image/png", png(4).body}, false},
        {"/corrupt", Answer{200, "image/png", png(4).body.substr(0, 40)}, false},
        {"/html", Answer{200, "text/html", "<html><body>gone</body></html>"}, false},
        {"/huge-claim",
         Answer{200, "image/png", quov::test::withPNGSize(png(4).body, 100000, 100000)}, false},
    };
    std::vector<std::optional<std::string>> urls;
    for (const auto& c : cases) {
        server_.on(c.path, c.answer);
        urls.push_back(server_.url(c.path));
    }
    ImageLoader loader(http_, loop_);
    const auto images = loadAll(loader, urls);
    for (std::size_t i = 0; i < cases.size(); ++i) {
        EXPECT_EQ(images[i] != nullptr, cases[i].image) << cases[i].path;
        if (images[i]) {
            EXPECT_EQ(images[i]->width, 4) << cases[i].path;
        }
    }
}

// Without a TestServer: nothing here may reach one, and a server that never served a
// request can miss its own stop.
TEST(ImageLoader, AbsentMalformedAndUnreachableURLsGiveNull) {
    const std::vector<std::optional<std::string>> urls = {
        std::nullopt,
        "",
        "not a url",
        "//127.0.0.1/a.png",
        "http://",
        "ftp://127.0.0.1/a.png",
        "file:///etc/passwd",
        "data:image/png;base64,iVBORw0KGgo=",
        "http://127.0.0.1:1/a b.png",
        "http://127.0.0.1:" + std::to_string(quov::test::TestServer::deadPort()) + "/a.png",
    };
    quov::MainLoop loop;
    quov::platform::HttpClient http(loop);
    ImageLoader loader(http, loop);
    std::size_t got = 0;
    for (const auto& url : urls)
        loader.load(url, [&, url](ImagePtr image) {
            EXPECT_EQ(image, nullptr) << url.value_or("(null)");
            ++got;
        });
    EXPECT_TRUE(loop.runUntil([&] { return got == urls.size(); }, 20s));
}

TEST_F(ImageLoaderTest, SecondLoadIsServedFromTheCache) {
    server_.on("/a.png", png(8));
    ImageLoader loader(http_, loop_);
    const auto first = load(loader, server_.url("/a.png"));
    ASSERT_TRUE(first);
    EXPECT_EQ(first->width, 8);
    EXPECT_EQ(load(loader, server_.url("/a.png")), first);
    EXPECT_EQ(server_.countOn("/a.png"), 1u);
}

TEST_F(ImageLoaderTest, ConcurrentLoadsOfOneURLShareOneDownload) {
    server_.on("/a.png", png(8));
    server_.on("/b.png", png(6));
    ImageLoader loader(http_, loop_);
    const auto a = server_.url("/a.png"), b = server_.url("/b.png");
    const auto images = loadAll(loader, {a, b, a, a});
    ASSERT_TRUE(images[0]);
    EXPECT_EQ(images[2], images[0]);
    EXPECT_EQ(images[3], images[0]);
    ASSERT_TRUE(images[1]);
    EXPECT_EQ(images[1]->width, 6);
    EXPECT_EQ(server_.countOn("/a.png"), 1u);
    EXPECT_EQ(server_.countOn("/b.png"), 1u);
}

TEST_F(ImageLoaderTest, FailuresAreNotCachedAndEveryWaiterHearsOfThem) {
    server_.onSequence("/flaky.png", {Answer::text("busy", 503), png(4)});
    ImageLoader loader(http_, loop_);
    const auto url = server_.url("/flaky.png");
    const auto failed = loadAll(loader, {url, url});
    EXPECT_EQ(failed[0], nullptr);
    EXPECT_EQ(failed[1], nullptr);
    EXPECT_TRUE(load(loader, url));
    EXPECT_EQ(server_.countOn("/flaky.png"), 2u);
}

TEST_F(ImageLoaderTest, CacheIsBoundedInBytesAndDropsTheLeastRecentlyUsed) {
    // 10x10 RGBA is 400 bytes: room for two.
    for (const char* path : {"/a", "/b", "/c"}) server_.on(path, png(10));
    server_.on("/big", png(15));  // 900 bytes: more than the whole cache
    ImageLoader loader(http_, loop_, 800);
    const auto a = server_.url("/a"), b = server_.url("/b"), c = server_.url("/c");

    load(loader, a);
    load(loader, b);
    load(loader, a);  // a is now the more recent
    load(loader, c);  // pushes out b, not a
    EXPECT_EQ(server_.countOn("/a"), 1u);
    load(loader, a);
    load(loader, c);
    EXPECT_EQ(server_.countOn("/a"), 1u);
    EXPECT_EQ(server_.countOn("/c"), 1u);
    load(loader, b);
    EXPECT_EQ(server_.countOn("/b"), 2u);

    // Too big to keep, but still delivered, and it evicts nothing.
    const auto big1 = load(loader, server_.url("/big"));
    const auto big2 = load(loader, server_.url("/big"));
    ASSERT_TRUE(big1 && big2);
    EXPECT_EQ(big1->width, 15);
    EXPECT_EQ(server_.countOn("/big"), 2u);
    load(loader, b);
    EXPECT_EQ(server_.countOn("/b"), 2u);
}

TEST_F(ImageLoaderTest, LoaderGoneWithLoadsPendingAnswersNullOnce) {
    server_.on("/slow.png", Answer{200, "image/png", png(4).body, 300ms});
    int answers = 0;
    ImagePtr got = std::make_shared<quov::platform::Image>();
    {
        ImageLoader loader(http_, loop_);
        loader.load(server_.url("/slow.png"), [&](ImagePtr image) {
            ++answers;
            got = std::move(image);
        });
    }
    EXPECT_TRUE(loop_.runUntil([&] { return answers == 1; }, 20s));
    EXPECT_EQ(got, nullptr);
    // The download still finishes later; its answer finds nobody and is dropped.
    EXPECT_TRUE(server_.waitForCount(1, 20s));
    loop_.runUntil([&] { return http_.inFlight() == 0; }, 20s);
    loop_.drain();
    EXPECT_EQ(answers, 1);
}

}  // namespace
