#include <quov/QVDeviceInfo.h>

#include "platform/runtime/Crypto.h"

#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <regex>
#include <set>
#include <system_error>
#include <thread>

namespace fs = std::filesystem;
using quov::QVDeviceInfo;

TEST(Hash, DataMD5KnownDigestsAndFileMD5ReadsEveryChunkAndRefusesWhatItCannotRead) {
    const std::pair<std::optional<std::string>, std::string> cases[] = {
        {std::string(""), "d41d8cd98f00b204e9800998ecf8427e"},
        {std::nullopt, ""},
        {std::string("abc"), "900150983cd24fb0d6963f7d28e17f72"},
        {std::string("ab\0cd", 5), "187ef4436122d1cc2f40dc2b92f0eba0"},  // stops at the zero byte: "ab"
    };
    for (const auto& [text, digest] : cases) EXPECT_EQ(QVDeviceInfo::dataMD5(text), digest);
    // 1023, 1024 and 1025 bytes straddle the chunk edge; 5000 spans several chunks.
    const fs::path p = fs::temp_directory_path() / ("quov-md5-" + std::to_string(::getpid()));
    for (std::size_t size : {0u, 1u, 1023u, 1024u, 1025u, 5000u}) {
        const std::string bytes(size, 'q');
        std::ofstream(p, std::ios::binary) << bytes;
        EXPECT_EQ(QVDeviceInfo::fileMD5(p.string()), QVDeviceInfo::dataMD5(bytes)) << size;
    }
    fs::remove(p);
    for (const std::string path : {"/nonexistent/quov/file", "", "/tmp"}) EXPECT_EQ(QVDeviceInfo::fileMD5(path), "");
    // Opens fine, but reading address zero of our own memory fails.
    EXPECT_THROW(QVDeviceInfo::fileMD5("/proc/self/mem"), std::system_error);
}

// A writer that connects late, and one that connects at once but idles: both hashed whole.
TEST(Hash, FileMD5OfAFifoWaitsForItsWriter) {
    using namespace std::chrono_literals;
    const std::string data(3000, 'q');
    for (bool lateWriter : {true, false}) {
        const std::string fifo = fs::temp_directory_path() / ("quov-fifo-" + std::to_string(::getpid()));
        ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
        std::thread writer([&] {
            if (lateWriter) std::this_thread::sleep_for(100ms);
            const int fd = ::open(fifo.c_str(), O_WRONLY | O_CLOEXEC);  // blocks until a reader comes
            if (!lateWriter) std::this_thread::sleep_for(100ms);  // connected, idle
            EXPECT_EQ(::write(fd, data.data(), data.size()), std::ssize(data));  // within one pipe buffer
            ::close(fd);
        });
        std::string digest;
        EXPECT_NO_THROW(digest = QVDeviceInfo::fileMD5(fifo)) << "late writer " << lateWriter;
        const int spare = ::open(fifo.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);  // lets an unread writer end
        writer.join();
        ::close(spare);
        EXPECT_EQ(digest, QVDeviceInfo::dataMD5(data)) << "late writer " << lateWriter;
        fs::remove(fifo);
    }
}

// The vendor identifier's HMAC against the crypto library's, across the block
// edges of SHA-256 (55/56/64 bytes of data, keys longer than a block are hashed).
TEST(Hash, HmacSha256MatchesTheCryptoLibrary) {
    for (std::size_t keySize : {0u, 1u, 32u, 64u, 65u, 131u})
        for (std::size_t dataSize : {0u, 3u, 55u, 56u, 63u, 64u, 119u, 1000u}) {
            std::string key(keySize, '\0'), data(dataSize, '\0');
            for (std::size_t i = 0; i < keySize; ++i) key[i] = static_cast<char>(i * 7 + 1);
            for (std::size_t i = 0; i < dataSize; ++i) data[i] = static_cast<char>(255 - i % 251);
            unsigned char expected[EVP_MAX_MD_SIZE];
            unsigned int size = 0;
            HMAC(EVP_sha256(), key.data(), static_cast<int>(keySize),
                 reinterpret_cast<const unsigned char*>(data.data()), dataSize, expected, &size);
            EXPECT_EQ(quov::platform::hmacSha256(key, data), std::vector<std::uint8_t>(expected, expected + size))
                << "key " << keySize << ", data " << dataSize;
        }
}

TEST(Hash, OriginUUIDIsAFullyRandomVersion4) {
    const std::regex form("[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}");
    std::vector<std::set<char>> perPosition(36);
    for (int i = 0; i < 64; ++i) {
        const std::string id = QVDeviceInfo::originUUID();
        ASSERT_TRUE(std::regex_match(id, form)) << id;
        for (std::size_t c = 0; c < id.size(); ++c) perPosition[c].insert(id[c]);
    }
    // Every random digit varies: a short fill would leave a stuck tail.
    for (std::size_t c : {0u, 7u, 9u, 12u, 15u, 17u, 19u, 22u, 24u, 35u})
        EXPECT_GT(perPosition[c].size(), 1u) << "digit " << c;
}
