#include "tovu/util/Logger.h"

namespace tovu { namespace util {

Logger::~Logger() = default;

}}  // namespace tovu::util
