#include "platform/media/ImageDecoder.h"

#include <SDL.h>
#include <SDL_image.h>

#include <benchmark/benchmark.h>

#include <stdexcept>
#include <string>
#include <vector>

namespace {

// A full-screen ad creative: smooth gradients with some noise, so it compresses like
// a photo-ish banner rather than a flat colour.
const std::string& png1080p() {
    static const std::string bytes = [] {
        SDL_Surface* s = SDL_CreateRGBSurfaceWithFormat(0, 1920, 1080, 32, SDL_PIXELFORMAT_RGBA32);
        if (!s) throw std::runtime_error(SDL_GetError());
        std::uint32_t seed = 12345;
        for (int y = 0; y < s->h; ++y) {
            auto* row = static_cast<std::uint8_t*>(s->pixels) + y * s->pitch;
            for (int x = 0; x < s->w; ++x) {
                seed = seed * 1664525u + 1013904223u;
                row[x * 4 + 0] = static_cast<std::uint8_t>(x * 255 / s->w);
                row[x * 4 + 1] = static_cast<std::uint8_t>(y * 255 / s->h);
                row[x * 4 + 2] = static_cast<std::uint8_t>((x + y) / 12 + (seed >> 29));
                row[x * 4 + 3] = 255;
            }
        }
        std::vector<char> buffer(1920 * 1080 * 5);
        SDL_RWops* rw = SDL_RWFromMem(buffer.data(), static_cast<int>(buffer.size()));
        IMG_SavePNG_RW(s, rw, 0);
        const auto size = SDL_RWtell(rw);
        SDL_RWclose(rw);
        SDL_FreeSurface(s);
        return std::string(buffer.data(), static_cast<std::size_t>(size));
    }();
    return bytes;
}

// Baseline: SDL_image alone, no header check and no RGBA copy.
void BM_DecodePng1080pSdlImageOnly(benchmark::State& state) {
    const std::string& bytes = png1080p();
    for (auto _ : state) {
        SDL_RWops* rw = SDL_RWFromConstMem(bytes.data(), static_cast<int>(bytes.size()));
        SDL_Surface* s = IMG_LoadPNG_RW(rw);
        SDL_RWclose(rw);
        benchmark::DoNotOptimize(s);
        SDL_FreeSurface(s);
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * bytes.size()));
}
BENCHMARK(BM_DecodePng1080pSdlImageOnly)->Unit(benchmark::kMillisecond);

// What the image loader's worker does per download: probe, decode, convert to RGBA.
void BM_DecodePng1080p(benchmark::State& state) {
    const std::string& bytes = png1080p();
    for (auto _ : state) {
        auto image = quov::platform::decodeImage(bytes);
        if (!image) state.SkipWithError("decode failed");
        benchmark::DoNotOptimize(image);
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * bytes.size()));
}
BENCHMARK(BM_DecodePng1080p)->Unit(benchmark::kMillisecond);

// The header check alone, which runs before anything is allocated.
void BM_ProbePng(benchmark::State& state) {
    const std::string& bytes = png1080p();
    for (auto _ : state) benchmark::DoNotOptimize(quov::platform::probeImage(bytes));
}
BENCHMARK(BM_ProbePng);

}  // namespace
