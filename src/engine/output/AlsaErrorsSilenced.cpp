#include "engine/output/AlsaErrorsSilenced.hpp"

#include <dlfcn.h>

namespace vantelo_sounds::engine {

namespace {

// alsa-lib's own declarations, without its headers: the library is SDL's to load.
using ErrorHandler = void (*)(const char* file, int line, const char* function, int err,
                              const char* fmt, ...);
using SetErrorHandler = int (*)(ErrorHandler handler);

void ignore(const char*, int, const char*, int, const char*, ...) {}

struct Alsa {
    SetErrorHandler setHandler = nullptr;
    ErrorHandler* current = nullptr; // alsa-lib's exported `snd_lib_error`

    Alsa() {
        // The same library SDL loads for its ALSA driver (one copy per process).
        void* library = dlopen("libasound.so.2", RTLD_LAZY | RTLD_LOCAL);
        if (library == nullptr) {
            return;
        }
        setHandler = reinterpret_cast<SetErrorHandler>(dlsym(library, "snd_lib_error_set_handler"));
        current = reinterpret_cast<ErrorHandler*>(dlsym(library, "snd_lib_error"));
        if (setHandler == nullptr || current == nullptr) {
            setHandler = nullptr;
        }
        // The library stays loaded for the life of the process, as SDL's use of it does.
    }
};

const Alsa& alsa() {
    static const Alsa instance;
    return instance;
}

} // namespace

AlsaErrorsSilenced::AlsaErrorsSilenced() noexcept {
    const Alsa& library = alsa();
    if (library.setHandler == nullptr) {
        return;
    }
    mPrevious = reinterpret_cast<void*>(*library.current);
    mActive = library.setHandler(ignore) == 0;
}

AlsaErrorsSilenced::~AlsaErrorsSilenced() {
    if (mActive) {
        alsa().setHandler(reinterpret_cast<ErrorHandler>(mPrevious));
    }
}

} // namespace vantelo_sounds::engine
