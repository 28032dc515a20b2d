#include "DaemonSupport/Memory.h"

#include <malloc.h>

namespace DaemonSupport {

void ReturnFreeMemory() {
#ifdef __GLIBC__
    ::malloc_trim(0);
#endif
}

} // namespace DaemonSupport
