#include <quov/QuovHost.h>

#include "platform/Application.h"
#include "platform/UrlOpener.h"

namespace quov {

void QuovHost::setURLOpenerProgram(std::string program) {
    platform::Application::shared().setURLOpener(platform::makeProgramURLOpener(std::move(program)));
}

}  // namespace quov
