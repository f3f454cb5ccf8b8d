#include <quov/QuovHost.h>

#include "platform/toolkit/Application.h"
#include "platform/opener/UrlOpener.h"

namespace quov {

void QuovHost::setURLOpenerProgram(std::string program) {
    platform::Application::shared().setURLOpener(platform::makeProgramURLOpener(std::move(program)));
}

}  // namespace quov
