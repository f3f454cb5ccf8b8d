#pragma once

#include "platform/toolkit/Application.h"
#include "platform/toolkit/HostInput.h"
#include "platform/toolkit/RgbaPainter.h"

#include <optional>

namespace quov::platform {

/// A host surface of any renderer: input in pixels goes through HostInput, the key
/// window is drawn by RgbaPainter into the host's buffer. Main thread.
class FrameSurface {
public:
    explicit FrameSurface(Application& app) : app_(app), input_(app) {}

    void attach(int widthPixels, int heightPixels, double scale);
    bool pointer(std::uint64_t id, TouchPhase phase, double x, double y);
    HostInput& input() { return input_; }
    bool needsDisplay();
    bool draw(const RgbaTarget& target);

private:
    DisplayList record(int width, int height);

    Application& app_;
    HostInput input_;
    double scale_ = 1;
    RgbaImageCache images_;
    std::optional<DisplayList> lastDrawn_;
    int lastWidth_ = 0, lastHeight_ = 0;
    bool surfaceChanged_ = false;
};

}  // namespace quov::platform
