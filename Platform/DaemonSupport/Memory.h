// The memory of a daemon after a large piece of work.
#pragma once

namespace DaemonSupport {

/// Gives back to the system what the process has freed. Reading a configuration takes several times the
/// memory that stays of it, in small pieces among those that stay, which the allocator would keep for good.
/// Costs some 10 ms for 100 MiB; who allocates meanwhile may have to wait for it. Nothing where the C library
/// cannot. Any thread.
void ReturnFreeMemory();

} // namespace DaemonSupport
