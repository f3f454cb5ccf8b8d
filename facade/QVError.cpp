#include <quov/QVError.h>

namespace quov {

std::string Error::describe() const {
    std::string out = "Error Domain=" + domain + " Code=" + std::to_string(code);
    if (description) out += " \"" + *description + "\"";
    return out;
}

Error QVError::errorWithCode(std::int64_t code) {
    const char* text = "其他错误";
    if (code == 3002) {
        text = "网络错误";
    } else if (code == 4002) {
        text = "匹配错误";
    } else if (code == 4001) {
        text = "协商失败";
    }
    return Error{kDomain, code, std::string(text)};
}

}  // namespace quov
