#pragma once

#include <quov/QuovAd.h>

#include <string>
#include <vector>

namespace quov::test {

/// A delegate that records each call as one word, with the arguments kept aside.
class RecordingDelegate : public QuovAdDelegate {
public:
    std::vector<std::string> calls;
    std::vector<Error> errors;
    std::vector<QVBidModelPtr> fetched;

    void onQuovSDKAdFetchedBid(QVBidModelPtr bid) override {
        calls.push_back("fetchedBid");
        fetched.push_back(std::move(bid));
    }
    void onQuovSDKAdLoaded() override { calls.push_back("loaded"); }
    void onQuovSDKAdDisplayed() override { calls.push_back("displayed"); }
    void onQuovSDKAdClicked() override { calls.push_back("clicked"); }
    void onQuovSDKAdClosed() override { calls.push_back("closed"); }
    void onQuovSDKAdLoadFailed(const Error& error) override {
        calls.push_back("loadFailed");
        errors.push_back(error);
    }
};

}  // namespace quov::test
