#pragma once

#include <cstdlib>
#include <optional>
#include <string>

namespace vantelo_sounds::test {

/// Sets an environment variable (no value: unsets it) for the guard's lifetime, then restores what
/// was there. Programs started meanwhile inherit the setting.
class ScopedEnv {
public:
    ScopedEnv(std::string name, const std::optional<std::string>& value)
        : mName(std::move(name)) {
        if (const char* old = std::getenv(mName.c_str())) {
            mOld = old;
        }
        set(value);
    }
    ~ScopedEnv() { set(mOld); }
    ScopedEnv(const ScopedEnv&) = delete;
    ScopedEnv& operator=(const ScopedEnv&) = delete;

private:
    void set(const std::optional<std::string>& value) const {
        value ? ::setenv(mName.c_str(), value->c_str(), 1) : ::unsetenv(mName.c_str());
    }

    std::string mName;
    std::optional<std::string> mOld;
};

} // namespace vantelo_sounds::test
