// A host that only sees the installed headers and library.
#include <quov/MainLoop.h>
#include <quov/QVError.h>
#include <quov/QuovAd.h>
#include <quov/QuovHost.h>

#include <cstdio>
#include <cstring>
#include <stdexcept>

int main() {
    quov::QuovAd& ad = quov::QuovAd::shared();
    ad.setIMEI("consumer");
    bool ok = QuovSDKVersionNumber == 1.0 && quov::QVError::errorWithCode(4001).code == 4001 &&
              std::strcmp(reinterpret_cast<const char*>(QuovSDKVersionString),
                          "@(#)PROGRAM:QuovSDK  PROJECT:QuovSDK-1\n") == 0 &&
              ad.IMEI() == std::string("consumer");
    try {
        quov::QuovHost::setBidServerBase(std::string("http://127.0.0.1:1/"));
        ok = false;
    } catch (const std::invalid_argument&) {
    }
    int ran = 0;
    quov::MainLoop::shared().post([&] { ++ran; });
    quov::MainLoop::shared().drain();
    ok = ok && ran == 1;
    std::puts(ok ? "consumer ok" : "consumer FAILED");
    return ok ? 0 : 1;
}
