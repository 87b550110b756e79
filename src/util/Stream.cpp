#include "tovu/util/Stream.h"

namespace tovu { namespace util {

Stream::~Stream() noexcept(false) = default;

}}  // namespace tovu::util
