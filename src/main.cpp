#include "driver/hv_driver.h"

int main(int argc, char** argv) { return run_driver(argc, argv); }

#if defined(__SANITIZE_ADDRESS__)
// Leaks inside the libraries ravel reads through, not ours, in the sanitizer build: libtsk's format
// detection leaves the VHD and VMDK handles it tried on every image it opens (their helpers resolve into
// libewf's copy of libcthreads). LeakSanitizer still reports every leak of our own code.
extern "C" const char* __lsan_default_suppressions() {
    return "leak:libvhdi.so\nleak:libvmdk.so\nleak:libtsk.so\nleak:libcthreads_read_write_lock_initialize\n";
}
#endif
