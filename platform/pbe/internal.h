/*
 * internal.h - what the common services call in the PBE service; not exported.
 */
#ifndef PBEINTERNAL_H
#define PBEINTERNAL_H

// svcpbeOwnProcess notes that the process belongs to the program alone, so that process-wide options of
// libcrypto may be chosen when the first session opens. It does nothing else.
void svcpbeOwnProcess();

// svcpbeTerminate wipes and releases the initial keys that were read from files and not released, and
// drops what the service keeps of libcrypto, unless a session is still open.
void svcpbeTerminate();

// svcpbeLibraryConsistent tells whether the libcrypto loaded at run time is of the version series that
// the service was built against. It does not initialise libcrypto.
[[nodiscard]] bool svcpbeLibraryConsistent();

// svcpbeForgetKey drops a buffer from the record of initial keys handed out, because it is about to be
// released. Any other address does nothing.
void svcpbeForgetKey(const void *buffer);

#endif
