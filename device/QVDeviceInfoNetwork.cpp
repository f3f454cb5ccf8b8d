#include <quov/QVDeviceInfo.h>

#include "device/PrimaryAddress.h"
#include "platform/Context.h"
#include "platform/runtime/Crypto.h"
#include "platform/device/DevicePlatform.h"
#include "platform/runtime/Text.h"

#include <arpa/inet.h>

#include <cstdio>

namespace quov {
namespace {

std::optional<std::string> hardwareAddressText(const platform::DevicePlatform& p) {
    auto name = p.primaryInterfaceName();
    if (!name || name->empty()) return std::nullopt;
    auto hw = p.hardwareAddress(*name);
    if (!hw) return std::nullopt;
    char out[18];
    std::snprintf(out, sizeof out, "%02X:%02X:%02X:%02X:%02X:%02X", (*hw)[0], (*hw)[1], (*hw)[2], (*hw)[3],
                  (*hw)[4], (*hw)[5]);
    return std::string(out);
}

std::string vendorIdentifierRule(const platform::DevicePlatform& p) {
    auto id = p.identifierForVendor();
    if (!id || id->empty()) return "000000000000";
    std::string out;
    for (char c : *id)
        if (c != '-') out += c;
    return out;
}

}  // namespace

namespace device {

std::optional<std::string> primaryIPv4(const platform::DevicePlatform& p) {
    const platform::RecordScope scope;  // the list and the interface from one look
    auto list = p.interfaceAddresses();
    if (!list) return std::nullopt;
    auto name = p.primaryInterfaceName();
    if (!name) return std::nullopt;
    std::optional<std::string> result;
    for (const auto& entry : *list) {
        if (entry.family != platform::kFamilyIPv4 || entry.name != *name) continue;
        in_addr a{};
        a.s_addr = entry.ipv4;
        char text[INET_ADDRSTRLEN];
        if (::inet_ntop(AF_INET, &a, text, sizeof text)) result = text;
    }
    return result;
}

}  // namespace device

std::string QVDeviceInfo::getMacAddress() {
    const platform::RecordScope scope;  // the interface and its address from one look
    auto p = platform::Context::shared().devicePlatform();
    // Read on every call even where the version ignores it: the order of the two
    // halves is part of the contract.
    std::optional<std::string> address = hardwareAddressText(*p);
    const bool haveAddress = address && !address->empty();
    const std::int64_t major = platform::leadingInteger(p->identityRuleVersion());
    if (major <= 5) return haveAddress ? *address : "000000000000";
    if (major == 6 && haveAddress) return *address;
    return vendorIdentifierRule(*p);
}

std::string QVDeviceInfo::getDeviceIPAdress() {
    return device::primaryIPv4(*platform::Context::shared().devicePlatform()).value_or("an error occurred when obtaining ip address");
}

std::string QVDeviceInfo::getIDFA() { return platform::Context::shared().devicePlatform()->advertisingIdentifier(); }

std::string QVDeviceInfo::originUUID() { return platform::randomUUID(); }

}  // namespace quov
