#pragma once

#include <cstddef>
#include <functional>
#include <string>

namespace vantelo_sounds {

/// A file URL: an absolute, normalised local path. Compared and hashed by path.
class FileURL {
public:
    FileURL() = default;
    /// The URL of `path`. A relative path is made absolute against the current directory;
    /// "." and ".." components and repeated slashes are removed. Never touches the file system.
    static FileURL fileURLWithPath(const std::string& path);

    const std::string& path() const noexcept { return mPath; }
    /// The last path component, extension included ("beep.wav"); "/" for the root.
    std::string lastPathComponent() const;
    /// The extension without its dot ("wav"), or empty.
    std::string pathExtension() const;
    FileURL deletingLastPathComponent() const;
    FileURL appendingPathComponent(const std::string& component) const;
    /// The platform's textual form: "file://" followed by the percent-encoded path
    /// ("file:///tmp/a%20b.wav"); UTF-8 bytes outside the unreserved set are encoded.
    std::string description() const;
    bool empty() const noexcept { return mPath.empty(); }

    friend bool operator==(const FileURL&, const FileURL&) = default;

private:
    std::string mPath;
};

} // namespace vantelo_sounds

template <>
struct std::hash<vantelo_sounds::FileURL> {
    std::size_t operator()(const vantelo_sounds::FileURL& url) const noexcept {
        return std::hash<std::string>{}(url.path());
    }
};
