/* The SDK's C interface: plain C99, stable, for hosts in C and for languages that
 * load C libraries (Python ctypes, Rust, Go, ...).
 *
 * Threads: call every function on the host's main thread, the one that drains the
 * main loop (quov_main_loop_drain); every delegate callback arrives there, during a
 * drain. Nothing here blocks except quov_flush and quov_main_loop_run_until.
 * Strings: UTF-8, NUL-terminated. Strings passed in are copied before the call
 * returns; NULL means absent where a function says so. Strings and structs passed
 * to a callback are owned by the SDK and valid only during that callback.
 * No C++ exception crosses this interface: a failure returns a quov_status, and
 * quov_last_error_message() describes the last one. */
#ifndef QUOV_QUOV_H
#define QUOV_QUOV_H

#include <stddef.h>
#include <stdint.h>

#if defined(QUOV_BUILDING_LIBRARY)
#define QUOV_C_API __attribute__((visibility("default")))
#else
#define QUOV_C_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* ---- versions ---- */
/* 1.0 */
extern QUOV_C_API const double QuovSDKVersionNumber;
/* "@(#)PROGRAM:QuovSDK  PROJECT:QuovSDK-1\n" */
extern QUOV_C_API const unsigned char QuovSDKVersionString[];

/* ---- results and errors ---- */
typedef enum quov_status {
    QUOV_OK = 0,
    QUOV_INVALID_ARGUMENT = 1, /* for example bundle information lacking a required key */
    QUOV_FAILED = 2            /* anything else the SDK could not do */
} quov_status;

/* The message of the last failed call on this thread; "" when there was none.
 * Owned by the SDK, valid until the next call into it. */
QUOV_C_API const char* quov_last_error_message(void);

/* An error the SDK reports: domain, code, description (NULL when it has none). */
typedef struct quov_error {
    const char* domain;
    int64_t code;
    const char* description;
} quov_error;

/* A bid handed to the host to render itself; valid during the callback only. */
typedef struct quov_bid quov_bid;
/* The bid's fields, NULL when absent; valid as long as the bid. */
QUOV_C_API const char* quov_bid_identifier(const quov_bid* bid);
QUOV_C_API const char* quov_bid_deep_link_url(const quov_bid* bid);
QUOV_C_API const char* quov_bid_click_url(const quov_bid* bid);
QUOV_C_API const char* quov_bid_image_url(const quov_bid* bid); /* the first image's */

/* ---- the facade ---- */
/* The delegate: every member may be NULL (that event is then ignored); user_data
 * is passed back unchanged. The struct is copied: it need not outlive the call. */
typedef struct quov_delegate {
    void* user_data;
    void (*on_fetched_bid)(void* user_data, const quov_bid* bid);
    void (*on_loaded)(void* user_data);
    void (*on_displayed)(void* user_data);
    void (*on_clicked)(void* user_data);
    void (*on_closed)(void* user_data);
    void (*on_load_failed)(void* user_data, const quov_error* error);
} quov_delegate;

/* Stores the credentials (NULL: absent), logs them and the device record.
 * QUOV_INVALID_ARGUMENT when the bundle information lacks a value the record needs
 * (see quov_host_set_bundle_info); the credentials are stored either way. */
QUOV_C_API quov_status quov_setup(const char* app_id, const char* app_key);
QUOV_C_API void quov_set_imei(const char* imei); /* NULL: empty */
QUOV_C_API void quov_set_oaid(const char* oaid); /* NULL: empty */
/* NULL clears the delegate. */
QUOV_C_API void quov_set_delegate(const quov_delegate* delegate);
/* Starts one load; the outcome arrives only through the delegate. */
QUOV_C_API quov_status quov_load_ad(const char* ad_id);
/* Configuration as stored; NULL when absent. Valid until the value is set again. */
QUOV_C_API const char* quov_app_id(void);
QUOV_C_API const char* quov_app_key(void);
QUOV_C_API const char* quov_imei(void);
QUOV_C_API const char* quov_oaid(void);
/* Runs the main loop until pending reports and URL openings end or timeout_ms
 * passes; returns 1 when nothing is left in flight. Blocks. */
QUOV_C_API int quov_flush(int timeout_ms);
/* The bid request's time-out in milliseconds (default 60000); past it the load fails
 * with 4001. Values below 1 count as 1. */
QUOV_C_API void quov_set_load_timeout(int timeout_ms);
/* Preload, then show (off by default): with it on, on_loaded arrives once the ad's
 * image is ready, and quov_show_ad() puts the ad on screen. */
QUOV_C_API void quov_set_preload_before_show(int on);
QUOV_C_API int quov_is_ad_ready(void);
/* Shows the ready ad; 0 (and nothing happens) when none is ready. */
QUOV_C_API int quov_show_ad(void);
/* Scales a wide or tall creative down so it and its close button fit the screen. */
QUOV_C_API void quov_set_fit_ad_to_screen(int on);

/* ---- what the host supplies ---- */
/* count pairs of keys and values ("CFBundleIdentifier", "CFBundleShortVersionString", ...). */
QUOV_C_API void quov_host_set_bundle_info(const char* const* keys, const char* const* values, size_t count);
/* identifier NULL restores the default (all-zero UUID, tracking off). */
QUOV_C_API void quov_host_set_advertising_identifier(const char* identifier, int tracking_enabled);
QUOV_C_API void quov_host_set_carrier_name(const char* name); /* NULL: none */
/* width and height in points, scale in pixels per point. */
QUOV_C_API void quov_host_set_main_screen(double width, double height, double scale);
typedef enum quov_application_state {
    QUOV_STATE_ACTIVE = 0,
    QUOV_STATE_INACTIVE = 1,
    QUOV_STATE_BACKGROUND = 2
} quov_application_state;
QUOV_C_API void quov_host_set_application_state(quov_application_state state);
QUOV_C_API void quov_host_set_url_opener_program(const char* program);
/* The bid server base ("https://ads.example.com[:port]", nothing after); NULL restores
 * the built-in one. QUOV_INVALID_ARGUMENT (message in quov_last_error_message) when
 * refused, and nothing changes. */
QUOV_C_API quov_status quov_host_set_bid_server_base(const char* base);
/* The schemes of the host's own deep links a click may open besides http and https;
 * replaces the earlier list. Returns how many were refused (malformed or local). */
QUOV_C_API size_t quov_host_allow_url_schemes(const char* const* schemes, size_t count);

/* ---- logging ---- */
typedef enum quov_log_level { QUOV_LOG_DEBUG = 0, QUOV_LOG_INFO = 1 } quov_log_level;
/* Receives every line (UTF-8, valid during the call) with its level, on the thread
 * that logs; NULL restores the default handler (standard error, escaped). */
QUOV_C_API void quov_set_log_handler(void (*handler)(void* user_data, quov_log_level level, const char* line),
                                     void* user_data);
/* Whether the default handler shows debug lines (also QUOV_LOG=debug). */
QUOV_C_API void quov_set_debug_logging(int on);

/* ---- the main loop ---- */
/* Runs the waiting SDK tasks (delegate callbacks among them); returns how many ran. */
QUOV_C_API size_t quov_main_loop_drain(void);
/* An eventfd readable while tasks wait; owned by the SDK. */
QUOV_C_API int quov_main_loop_fd(void);
QUOV_C_API size_t quov_main_loop_pending(void);
/* Drains and sleeps until done(user_data) returns nonzero or timeout_ms passes;
 * returns done's last answer. Blocks. */
QUOV_C_API int quov_main_loop_run_until(int (*done)(void* user_data), void* user_data, int timeout_ms);

/* ---- SDL2 hosts (types forward-declared: include SDL.h yourself) ----
 * A library built without the SDL backend (QUOV_WITH_SDL=OFF) still exports these,
 * so a host binary loads against either build; there each one does nothing,
 * returns 0 where it returns a value, and sets quov_last_error_message(). */
struct SDL_Window;
struct SDL_Renderer;
union SDL_Event;
QUOV_C_API void quov_sdl_attach_window(struct SDL_Window* window);
/* Nonzero when the SDK took the event. */
QUOV_C_API int quov_sdl_process_event(const union SDL_Event* event);
QUOV_C_API void quov_sdl_render(struct SDL_Renderer* renderer);
QUOV_C_API void quov_sdl_release_renderer(void);
QUOV_C_API void quov_sdl_set_ui_scale(double window_units_per_point);
QUOV_C_API void quov_sdl_orientation_did_change(void);
/* The frame (x, y, width, height in window points) of the frontmost element with
 * this label ("ad" or "close"); returns 0 and leaves frame alone when none. */
QUOV_C_API int quov_sdl_find_element(const char* label, double frame[4]);
QUOV_C_API int quov_sdl_is_loading_content(void);

/* ---- any renderer: the RGBA frame ---- */
typedef enum quov_key {
    QUOV_KEY_ESCAPE = 0,
    QUOV_KEY_BACK = 1,
    QUOV_KEY_ENTER = 2,
    QUOV_KEY_SPACE = 3,
    QUOV_KEY_GAMEPAD_A = 4,
    QUOV_KEY_GAMEPAD_B = 5
} quov_key;
typedef enum quov_pointer_phase {
    QUOV_POINTER_DOWN = 0,
    QUOV_POINTER_MOVE = 1,
    QUOV_POINTER_UP = 2,
    QUOV_POINTER_CANCEL = 3
} quov_pointer_phase;
/* Surface size in pixels and pixels per point; call again on every resize. */
QUOV_C_API void quov_frame_attach_surface(int width_pixels, int height_pixels, double scale);
/* Nonzero when the SDK took the step (coordinates in surface pixels). */
QUOV_C_API int quov_frame_pointer(uint64_t id, quov_pointer_phase phase, double x, double y);
/* Nonzero when the SDK took the key; down: 1 press, 0 release. */
QUOV_C_API int quov_frame_key(quov_key key, int down);
QUOV_C_API void quov_frame_set_application_state(quov_application_state state);
/* Nonzero when the ad layer changed since the last quov_frame_draw. */
QUOV_C_API int quov_frame_needs_display(void);
/* Fills the host's buffer with the ad layer: premultiplied RGBA, bytes R, G, B, A,
 * rows top to bottom, stride bytes apart, transparent where no ad is. Returns 0
 * and writes nothing for unusable arguments. */
QUOV_C_API int quov_frame_draw(uint8_t* pixels, int width, int height, int stride);

#ifdef __cplusplus
}
#endif

#endif /* QUOV_QUOV_H */
