#include "platform/media/ImageLoader.h"
#include "platform/media/ImageViewURL.h"

#include "support/TestImages.h"
#include "support/TestServer.h"

#include <gtest/gtest.h>

using namespace std::chrono_literals;
using quov::platform::ImageLoader;
using quov::platform::ImagePtr;
using quov::platform::ImageView;
using quov::platform::setImageWithURL;
using quov::test::Answer;
using URLs = std::vector<std::optional<std::string>>;

namespace {

std::string pngBytes(int side) {
    return quov::test::encodePNG(side, side, [](int, int) { return 0x3366ccffu; });
}
Answer png(int side, std::chrono::milliseconds delay = 0ms) { return Answer{200, "image/png", pngBytes(side), delay}; }

// Loads every URL before the loop runs; what each caller got, each answered once.
std::vector<ImagePtr> loadAll(quov::MainLoop& loop, ImageLoader& loader, const URLs& urls) {
    std::vector<ImagePtr> images(urls.size());
    std::vector<int> answers(urls.size(), 0);
    for (std::size_t i = 0; i < urls.size(); ++i)
        loader.load(urls[i], [&, i](ImagePtr image) { images[i] = std::move(image), ++answers[i]; });
    EXPECT_EQ(std::count(answers.begin(), answers.end(), 0), std::ssize(urls)) << "answered inline";
    EXPECT_TRUE(loop.runUntil([&] { return std::count(answers.begin(), answers.end(), 0) == 0; }, 20s));
    loop.drain();
    for (std::size_t i = 0; i < urls.size(); ++i)
        EXPECT_EQ(answers[i], 1) << urls[i].value_or("(null)");
    return images;
}

class ImageLoaderTest : public ::testing::Test {
protected:
    // A load joins the same download (or hits the cache), answered after every earlier waiter.
    ImagePtr load(const std::string& path, ImageLoader* loader = nullptr) {
        return loadAll(loop_, loader ? *loader : loader_, {server_.url(path)})[0];
    }
    quov::MainLoop loop_;
    quov::test::TestServer server_;
    quov::platform::HttpClient http_{loop_};
    ImageLoader loader_{http_, loop_};
};

TEST_F(ImageLoaderTest, AnySuccessfulAnswerWithImageBytesGivesAnImageEverythingElseNull) {
    URLs urls = {
        std::nullopt, "", "not a url", "//127.0.0.1/a.png", "ftp://127.0.0.1/a.png", "file:///etc/passwd",
        "http://127.0.0.1:" + std::to_string(quov::test::TestServer::deadPort()) + "/a.png",
    };
    const std::size_t unusable = urls.size();
    const std::vector<std::tuple<const char*, Answer, bool>> cases = {
        {"/ok", png(4), true},
        {"/octet-stream", Answer{200, "application/octet-stream", pngBytes(4)}, true},
        {"/no-content", Answer::empty(204), false},
        {"/missing", Answer{404, "image/png", pngBytes(4)}, false},
        {"/corrupt", Answer{200, "image/png", pngBytes(4).substr(0, 40)}, false},
    };
    for (const auto& [path, answer, ok] : cases) server_.on(path, answer), urls.push_back(server_.url(path));
    const auto images = loadAll(loop_, loader_, urls);
    for (std::size_t i = 0; i < urls.size(); ++i)
        EXPECT_EQ(images[i] != nullptr, i >= unusable && std::get<2>(cases[i - unusable])) << urls[i].value_or("-");
    EXPECT_EQ(server_.count(), cases.size());
}

TEST_F(ImageLoaderTest, ConcurrentLoadsShareOneDownloadLaterOnesHitTheCacheFailuresAreNotKept) {
    server_.on("/a.png", png(8));
    server_.on("/b.png", png(6));
    server_.onSequence("/flaky.png", {Answer::text("busy", 503), png(4)});
    const auto a = server_.url("/a.png"), b = server_.url("/b.png");
    const auto images = loadAll(loop_, loader_, {a, b, a, a});
    ASSERT_TRUE(images[0] && images[1]);
    EXPECT_TRUE(images[0]->width == 8 && images[1]->width == 6);
    EXPECT_TRUE(images[2] == images[0] && images[3] == images[0]);
    EXPECT_EQ(load("/a.png"), images[0]);
    EXPECT_TRUE(server_.countOn("/a.png") == 1u && server_.countOn("/b.png") == 1u);
    EXPECT_EQ(load("/flaky.png"), nullptr);
    EXPECT_TRUE(load("/flaky.png"));
}

TEST_F(ImageLoaderTest, CacheIsBoundedInBytesAndDropsTheLeastRecentlyUsed) {
    for (const char* path : {"/a", "/b", "/c"}) server_.on(path, png(10));  // 400 bytes each
    server_.on("/big", png(15));                                            // 900 bytes
    ImageLoader loader(http_, loop_, 800);
    for (const char* path : {"/a", "/b", "/a", "/c", "/a", "/c"}) load(path, &loader);
    EXPECT_EQ(server_.countOn("/a"), 1u) << "a was used after b, so c pushed out b";
    EXPECT_EQ(server_.countOn("/c"), 1u);
    load("/b", &loader);
    EXPECT_EQ(server_.countOn("/b"), 2u);

    // Bigger than the whole cache: delivered every time, kept never, evicting nothing.
    ASSERT_TRUE(load("/big", &loader) && load("/big", &loader));
    EXPECT_EQ(server_.countOn("/big"), 2u);
    load("/b", &loader);
    EXPECT_EQ(server_.countOn("/b"), 2u);
}

// A later call wins over an earlier, slower one.
TEST_F(ImageLoaderTest, AViewIsEmptiedAtOnceAndGetsOnlyTheImageOfItsLatestURL) {
    server_.on("/ad.png", png(12));
    server_.on("/slow.png", png(30, 300ms));
    const std::pair<std::optional<std::string>, int> cases[] = {
        {server_.url("/ad.png"), 12}, {server_.url("/missing.png"), 0}, {std::nullopt, 0}};
    for (const auto& [url, width] : cases) {
        auto view = ImageView::make();
        view->setImage(std::make_shared<quov::platform::Image>());  // a stale image
        setImageWithURL(view, server_.url("/slow.png"), loader_);
        setImageWithURL(view, url, loader_);
        EXPECT_EQ(view->image(), nullptr) << url.value_or("(null)");
        load("/ad.png"), load("/missing.png"), load("/slow.png");
        EXPECT_EQ(view->image() ? view->image()->width : 0, width) << url.value_or("(null)");
    }
}

}  // namespace
