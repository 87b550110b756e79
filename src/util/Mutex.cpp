#include "tovu/util/Mutex.h"

namespace tovu { namespace util {

Mutex::~Mutex()
{
    pthread_mutex_destroy(&mutex_);
}

}}  // namespace tovu::util
