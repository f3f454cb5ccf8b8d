#include "platform/media/ResourceBundle.h"

#include <map>
#include <mutex>

#include <SDL.h>
#include <SDL_image.h>
#include <dlfcn.h>

#include <cstring>
#include <memory>
#include <string>
#include <system_error>

#ifndef QUOV_BUILD_RESOURCE_DIR
#define QUOV_BUILD_RESOURCE_DIR ""
#endif

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

struct SurfaceFree {
    void operator()(SDL_Surface* s) const { SDL_FreeSurface(s); }
};
using SurfacePtr = std::unique_ptr<SDL_Surface, SurfaceFree>;

constexpr int kMaxSide = 4096;

ImagePtr decodeFile(const fs::path& path) {
    SurfacePtr loaded(IMG_Load(path.c_str()));
    if (!loaded || loaded->w <= 0 || loaded->h <= 0 || loaded->w > kMaxSide || loaded->h > kMaxSide)
        return nullptr;
    SurfacePtr rgba(SDL_ConvertSurfaceFormat(loaded.get(), SDL_PIXELFORMAT_RGBA32, 0));
    if (!rgba) return nullptr;
    auto image = std::make_shared<Image>();
    image->width = rgba->w;
    image->height = rgba->h;
    const auto rowBytes = static_cast<std::size_t>(rgba->w) * 4;
    image->rgba.resize(rowBytes * static_cast<std::size_t>(rgba->h));
    if (SDL_LockSurface(rgba.get()) != 0) return nullptr;
    const auto* src = static_cast<const std::uint8_t*>(rgba->pixels);
    for (int y = 0; y < rgba->h; ++y)
        std::memcpy(image->rgba.data() + rowBytes * static_cast<std::size_t>(y),
                    src + static_cast<std::ptrdiff_t>(y) * rgba->pitch, rowBytes);
    SDL_UnlockSurface(rgba.get());
    return image;
}

}  // namespace

Bundle Bundle::bundleForLibrary() {
    std::vector<fs::path> dirs;
    if (auto own = directoryOfOurCode(); !own.empty()) dirs.push_back(own);
    if (const fs::path build = QUOV_BUILD_RESOURCE_DIR; !build.empty() && (dirs.empty() || build != dirs.front()))
        dirs.push_back(build);
    return Bundle(std::move(dirs));
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
