/* A headless C99 host on the RGBA path: loads one ad from the bid server given as its
 * argument (or in QUOV_BID_SERVER_BASE), draws the ad layer into its own buffer, checks it, and
 * closes the ad with the Escape key. Exits 0 when all of that happened. */
#include <quov/quov.h>

#include <stdio.h>
#include <stdlib.h>

enum { WIDTH = 750, HEIGHT = 1624 }; /* 375 x 812 points at 2 pixels a point */

typedef struct Host {
    int displayed, closed, failed;
} Host;

static void on_loaded(void* u) { (void)u; puts("onQuovSDKAdLoaded"); }
static void on_displayed(void* u) { ((Host*)u)->displayed = 1; puts("onQuovSDKAdDisplayed"); }
static void on_clicked(void* u) { (void)u; puts("onQuovSDKAdClicked"); }
static void on_closed(void* u) { ((Host*)u)->closed = 1; puts("onQuovSDKAdClosed"); }
static void on_failed(void* u, const quov_error* e) {
    ((Host*)u)->failed = 1;
    printf("onQuovSDKAdLoadFailed %s %lld\n", e->domain, (long long)e->code);
}
static int shown(void* u) { const Host* h = u; return h->displayed || h->failed; }

static uint8_t* pixels;

/* A host frame: redraw only when the ad layer changed; done once the image is in. */
static int image_drawn(void* u) {
    (void)u;
    if (quov_frame_needs_display() && !quov_frame_draw(pixels, WIDTH, HEIGHT, WIDTH * 4)) return 0;
    return pixels[((size_t)(HEIGHT / 2) * WIDTH + WIDTH / 2) * 4 + 3] == 255;
}

int main(int argc, char** argv) {
    static const char* keys[] = {"CFBundleIdentifier", "CFBundleShortVersionString", "CFBundleName"};
    static const char* values[] = {"org.quov.c-host", "1.0", "c-host"};
    Host host = {0, 0, 0};
    quov_delegate delegate = {&host, NULL, on_loaded, on_displayed, on_clicked, on_closed, on_failed};
    const uint8_t* centre;
    pixels = calloc((size_t)WIDTH * HEIGHT, 4);
    if (!pixels) return 1;

    quov_host_set_bundle_info(keys, values, 3);
    if (quov_host_set_bid_server_base(argc > 1 ? argv[1] : getenv("QUOV_BID_SERVER_BASE")) != QUOV_OK) {
        fprintf(stderr, "bid server: %s\n", quov_last_error_message());
        return 1;
    }
    quov_frame_attach_surface(WIDTH, HEIGHT, 2.0);
    if (quov_setup("c-host", "c-key") != QUOV_OK) {
        fprintf(stderr, "setup: %s\n", quov_last_error_message());
        return 1;
    }
    quov_set_delegate(&delegate);
    quov_load_ad("slot");
    if (!quov_main_loop_run_until(shown, &host, 20000) || host.failed) return 1;

    if (!quov_frame_needs_display()) return 1; /* a new ad is a change */
    if (!quov_main_loop_run_until(image_drawn, NULL, 20000)) return 1;
    centre = pixels + ((size_t)(HEIGHT / 2) * WIDTH + WIDTH / 2) * 4;
    printf("centre pixel %d %d %d %d\n", centre[0], centre[1], centre[2], centre[3]);
    if (centre[3] != 255 || pixels[3] != 204) return 1; /* the image, then the 80 % mask */
    if (quov_frame_needs_display()) return 1; /* idle: nothing to redraw */

    if (!quov_frame_key(QUOV_KEY_ESCAPE, 1) || !quov_frame_key(QUOV_KEY_ESCAPE, 0) || !host.closed) return 1;
    if (!quov_frame_needs_display() || !quov_frame_draw(pixels, WIDTH, HEIGHT, WIDTH * 4) || pixels[3] != 0)
        return 1;
    quov_flush(10000);
    quov_set_delegate(NULL);
    free(pixels);
    return 0;
}
