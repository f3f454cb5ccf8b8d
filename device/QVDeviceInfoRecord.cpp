#include <quov/QVDeviceInfo.h>

#include "platform/Context.h"
#include "platform/device/DevicePlatform.h"

#include <nlohmann/json.hpp>

#include <stdexcept>

namespace quov {
namespace {

[[noreturn]] void throwAbsent(const std::string& key, std::string_view source) {
    std::string message = "DeviceInfoRecord: absent value for key \"" + key + "\"";
    if (!source.empty()) message += " (from \"" + std::string(source) + "\")";
    if (source.rfind("CFBundle", 0) == 0)
        message += ": the bundle information has no \"" + std::string(source) +
                   "\"; set it with QuovHost::setBundleInfo before setup";
    throw std::invalid_argument(message);
}

}  // namespace

const DeviceInfoRecord::Value* DeviceInfoRecord::find(std::string_view key) const {
    for (const auto& [k, v] : entries_)
        if (k == key) return &v;
    return nullptr;
}

void DeviceInfoRecord::insert(const std::string& key, std::optional<std::string> value, std::string_view source) {
    if (!value) throwAbsent(key, source);
    for (auto& [k, v] : entries_) {
        if (k == key) {
            v = std::move(*value);
            return;
        }
    }
    entries_.emplace_back(key, std::move(*value));
}

void DeviceInfoRecord::insert(const std::string& key, std::optional<double> value, std::string_view source) {
    if (!value) throwAbsent(key, source);
    for (auto& [k, v] : entries_) {
        if (k == key) {
            v = *value;
            return;
        }
    }
    entries_.emplace_back(key, *value);
}

std::optional<std::string> DeviceInfoRecord::text(std::string_view key) const {
    const Value* v = find(key);
    if (!v || !std::holds_alternative<std::string>(*v)) return std::nullopt;
    return std::get<std::string>(*v);
}

std::optional<double> DeviceInfoRecord::number(std::string_view key) const {
    const Value* v = find(key);
    if (!v || !std::holds_alternative<double>(*v)) return std::nullopt;
    return std::get<double>(*v);
}

std::vector<std::string> DeviceInfoRecord::keys() const {
    std::vector<std::string> out;
    out.reserve(entries_.size());
    for (const auto& e : entries_) out.push_back(e.first);
    return out;
}

std::string DeviceInfoRecord::describe() const {
    // Keys are unique and kept in insertion order, so the object is written member by
    // member; an order-keeping JSON type would add its whole template set to the library.
    // Values come from files and the host; bad UTF-8 must not cost the log line.
    const auto text = [](const nlohmann::json& value) {
        return value.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
    };
    std::string out = "{";
    for (const auto& [k, v] : entries_) {
        if (out.size() > 1) out += ',';
        out += text(k);
        out += ':';
        out += std::holds_alternative<std::string>(v) ? text(std::get<std::string>(v)) : text(std::get<double>(v));
    }
    return out + "}";
}

DeviceInfoRecord QVDeviceInfo::deviceInfo() {
    // Every provider below asks again for what another one read; one read each.
    const platform::RecordScope scope;
    auto p = platform::Context::shared().devicePlatform();
    DeviceInfoRecord record;
    std::string type = deviceTypeDetail();
    std::string os = p->systemName();
    std::string osVersion = p->systemVersion();
    std::string idfa = p->advertisingIdentifier();

    record.insert("IDFA", std::optional<std::string>(std::move(idfa)));
    record.insert("DeviceOs", std::optional<std::string>(std::move(os)));
    record.insert("DeviceOsVersion", std::optional<std::string>(std::move(osVersion)));
    record.insert("DeviceType", std::optional<std::string>(std::move(type)));
    record.insert("Langauge", std::optional<std::string>(getDeviceLanguage()));
    record.insert("DeviceMac", std::optional<std::string>(getMacAddress()));
    record.insert("DeviceModel", std::optional<std::string>(p->model()));
    record.insert("DeviceModelDetail", std::optional<std::string>(deviceTypeDetail()));
    record.insert("DeviceMetrics", std::optional<std::string>(getDeviceDisplayMetrics()));
    record.insert("CPUArchitecture", std::optional<std::string>(cpuArchitectures()));
    record.insert("BundleID", getBundleID(), "CFBundleIdentifier");
    record.insert("AppVersion", getLocalAppVersion(), "CFBundleShortVersionString");
    record.insert("AppName", std::optional<std::string>(getApplicationName()));
    record.insert("IP", std::optional<std::string>(getDeviceIPAdress()));
    record.insert("BatteryLevel", std::optional<double>(getBatteryLevel()));
    record.insert("BatteryState", getBatteryState(), "the battery state");
    return record;
}

}  // namespace quov
