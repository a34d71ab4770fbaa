// Private to the fake platform: the state the wrapped calls share.
#ifndef DVR_FAKE_STATE_H
#define DVR_FAKE_STATE_H

#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "fake_platform.h"

namespace fake {

struct State {
    std::recursive_mutex mutex;
    std::map<std::string, std::shared_ptr<Device>> devices;
    std::map<int, std::shared_ptr<Device>> openFds;
    std::map<std::string, std::string> roots;
};

State &state();

} // namespace fake

#endif
