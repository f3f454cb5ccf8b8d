// A library built without the SDL backend keeps the SDL entry points of the C
// interface, so a host binary made against either build still loads; each one
// reports the missing backend instead of doing anything.
#include <gtest/gtest.h>

#include <dlfcn.h>

#include <string>

namespace {

TEST(CApiWithoutSdl, SdlEntryPointsAreExportedAndReportTheMissingBackend) {
    void* lib = ::dlopen(QUOV_SHARED_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(lib, nullptr) << ::dlerror();
    const auto lastError = reinterpret_cast<const char* (*)()>(::dlsym(lib, "quov_last_error_message"));
    ASSERT_NE(lastError, nullptr);
    double frame[4] = {1, 2, 3, 4};
    // Each call with the arguments a host would pass; all take null or nothing here.
    const struct {
        const char* symbol;
        int (*call)(void* fn, double* frame);
    } cases[] = {
        {"quov_sdl_attach_window", [](void* f, double*) { return reinterpret_cast<void (*)(void*)>(f)(nullptr), 0; }},
        {"quov_sdl_process_event", [](void* f, double*) { return reinterpret_cast<int (*)(const void*)>(f)(nullptr); }},
        {"quov_sdl_render", [](void* f, double*) { return reinterpret_cast<void (*)(void*)>(f)(nullptr), 0; }},
        {"quov_sdl_release_renderer", [](void* f, double*) { return reinterpret_cast<void (*)()>(f)(), 0; }},
        {"quov_sdl_set_ui_scale", [](void* f, double*) { return reinterpret_cast<void (*)(double)>(f)(2.0), 0; }},
        {"quov_sdl_orientation_did_change", [](void* f, double*) { return reinterpret_cast<void (*)()>(f)(), 0; }},
        {"quov_sdl_find_element",
         [](void* f, double* fr) { return reinterpret_cast<int (*)(const char*, double*)>(f)("close", fr); }},
        {"quov_sdl_is_loading_content", [](void* f, double*) { return reinterpret_cast<int (*)()>(f)(); }},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.symbol);
        void* fn = ::dlsym(lib, c.symbol);
        ASSERT_NE(fn, nullptr) << "not exported";
        EXPECT_EQ(c.call(fn, frame), 0);
        EXPECT_NE(std::string(lastError()).find("SDL"), std::string::npos) << lastError();
    }
    EXPECT_EQ(frame[0], 1) << "find_element leaves the frame alone";
    EXPECT_EQ(frame[3], 4);
    ::dlclose(lib);
}

}  // namespace
