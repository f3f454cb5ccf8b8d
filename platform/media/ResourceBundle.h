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
    /// the program it is linked into), then the build tree's output directory.
    static Bundle bundleForLibrary();
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

/// Decodes "name.png" of bundle to RGBA. Null when there is no bundle, no such
/// file, or it is not an image of at most 4096 x 4096 pixels.
ImagePtr imageNamed(std::string_view name, const std::optional<Bundle>& bundle);

}  // namespace quov::platform
