#include "command/MainThreadMode.hpp"

namespace tessarin {

MainThreadMode mainThreadMode(const std::vector<std::string>& arguments) {
  const bool isRecord = !arguments.empty() && arguments.front() == "record";
  const bool isTranslation = arguments.size() == 1 && arguments.front() == "translate-text";
  return isRecord || isTranslation ? MainThreadMode::application : MainThreadMode::port;
}

} // namespace tessarin
