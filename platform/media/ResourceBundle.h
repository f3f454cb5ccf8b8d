#pragma once

#include "platform/toolkit/Image.h"

#include <filesystem>
#include <optional>
#include <string_view>
#include <vector>

namespace quov::platform {

/// A directory of resources. Lookups read the file system; they are small and
/// local, and the SDK makes them when a view is built.
class Bundle {
public:
    explicit Bundle(std::vector<std::filesystem::path> directories)
        : directories_(std::move(directories)) {}

    /// The bundle that holds the library's code: the directory of libquovsdk (or of
    /// the program it is linked into), or the one setLibraryDirectory named. Nowhere else.
    static Bundle bundleForLibrary();
    /// Makes bundleForLibrary() answer directory instead of the code's own; nullopt
    /// restores it. For programs that link the library statically and keep its
    /// resources elsewhere, and for tests. Any thread.
    static void setLibraryDirectory(std::optional<std::filesystem::path> directory);
    /// A bundle opened at a directory; none when url is absent or not a directory.
    static std::optional<Bundle> bundleWithURL(const std::optional<std::filesystem::path>& url);

    /// The path of "name.extension" in the first directory that has it.
    std::optional<std::filesystem::path> URLForResource(std::string_view name,
                                                        std::string_view extension) const;

    const std::vector<std::filesystem::path>& directories() const { return directories_; }

private:
    std::vector<std::filesystem::path> directories_;
};

/// The SDK's own resources, "quovsdk_images" with extension "bundle", opened from
/// bundleForLibrary(); none when it is not installed.
std::optional<Bundle> resourceBundle();

/// Decodes "name.png" of bundle to RGBA with the ad images' guarded decoder. Null
/// when there is no bundle, no such file, or the decoder refuses it.
ImagePtr imageNamed(std::string_view name, const std::optional<Bundle>& bundle);

}  // namespace quov::platform
