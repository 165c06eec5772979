#include "runtime/sync.h"

namespace tk {

TkMutex::TkMutex() { pthread_mutex_init(&mutex_, nullptr); }

TkMutex::~TkMutex() {
  pthread_mutex_unlock(&mutex_);
  pthread_mutex_destroy(&mutex_);
}

int TkMutex::Lock() { return pthread_mutex_lock(&mutex_); }

int TkMutex::Unlock() { return pthread_mutex_unlock(&mutex_); }

TkMutex gSignalMutex;
TkMutex gTempNameMutex;

}  // namespace tk
