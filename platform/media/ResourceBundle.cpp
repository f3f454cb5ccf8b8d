#include "platform/media/ResourceBundle.h"

#include "platform/media/ImageDecoder.h"

#include <dlfcn.h>

#include <fstream>
#include <map>
#include <mutex>
#include <string>
#include <system_error>

namespace quov::platform {
namespace {

namespace fs = std::filesystem;

void codeAnchor() {}

fs::path directoryOfOurCode() {
    Dl_info info{};
    if (!::dladdr(reinterpret_cast<void*>(&codeAnchor), &info) || !info.dli_fname) return {};
    std::error_code ec;
    fs::path file = info.dli_fname;
    // The main program reports its name as it was started; the kernel knows better.
    if (!file.has_parent_path()) file = fs::read_symlink("/proc/self/exe", ec);
    fs::path canonical = fs::weakly_canonical(file, ec);
    return (ec ? file : canonical).parent_path();
}

std::mutex& directoryMutex() {
    static std::mutex m;
    return m;
}
std::optional<fs::path>& directoryOverride() {
    static std::optional<fs::path> dir;
    return dir;
}

// A resource is trusted no more than a download: same caps, same refused formats.
ImagePtr decodeFile(const fs::path& path) {
    const ImageLimits limits;
    std::error_code ec;
    if (!fs::is_regular_file(path, ec)) return nullptr;
    const auto size = fs::file_size(path, ec);
    if (ec || size > limits.maxBytes) return nullptr;
    std::ifstream in(path, std::ios::binary);
    std::string bytes(static_cast<std::size_t>(size), '\0');
    if (!in.read(bytes.data(), static_cast<std::streamsize>(bytes.size()))) return nullptr;
    return decodeImage(bytes, limits);
}

}  // namespace

Bundle Bundle::bundleForLibrary() {
    {
        std::lock_guard lock(directoryMutex());
        if (directoryOverride()) return Bundle({*directoryOverride()});
    }
    std::vector<fs::path> dirs;
    if (auto own = directoryOfOurCode(); !own.empty()) dirs.push_back(own);
    return Bundle(std::move(dirs));
}

void Bundle::setLibraryDirectory(std::optional<fs::path> directory) {
    std::lock_guard lock(directoryMutex());
    directoryOverride() = std::move(directory);
}

std::optional<Bundle> Bundle::bundleWithURL(const std::optional<fs::path>& url) {
    std::error_code ec;
    if (!url || !fs::is_directory(*url, ec)) return std::nullopt;
    return Bundle({*url});
}

std::optional<fs::path> Bundle::URLForResource(std::string_view name,
                                               std::string_view extension) const {
    std::string file(name);
    if (!extension.empty()) file.append(".").append(extension);
    if (file.empty() || file.find('/') != std::string::npos) return std::nullopt;
    for (const auto& dir : directories_) {
        std::error_code ec;
        const fs::path p = dir / file;
        if (fs::exists(p, ec)) return p;
    }
    return std::nullopt;
}

std::optional<Bundle> resourceBundle() {
    return Bundle::bundleWithURL(Bundle::bundleForLibrary().URLForResource("quovsdk_images", "bundle"));
}

ImagePtr imageNamed(std::string_view name, const std::optional<Bundle>& bundle) {
    if (!bundle) return nullptr;
    const auto path = bundle->URLForResource(name, "png");
    if (!path) return nullptr;
    // Every ad view asks for the same icon: decode each file once per process.
    static std::mutex mutex;
    static std::map<std::filesystem::path, ImagePtr> decoded;
    std::lock_guard lock(mutex);
    auto it = decoded.find(*path);
    if (it == decoded.end()) it = decoded.emplace(*path, decodeFile(*path)).first;
    return it->second;
}

}  // namespace quov::platform
