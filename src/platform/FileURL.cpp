#include <cerrno>
#include <string_view>
#include <unistd.h>
#include <vantelo_sounds/platform/FileURL.hpp>
#include <vector>

namespace vantelo_sounds {

namespace {

std::string currentDirectory() {
    std::vector<char> buffer(4096);
    while (::getcwd(buffer.data(), buffer.size()) == nullptr) {
        if (errno != ERANGE) {
            return "/";
        }
        buffer.resize(buffer.size() * 2);
    }
    return buffer.data();
}

// Resolves "." and ".." and repeated slashes textually; ".." at the root stays at the root.
std::string normalise(std::string_view path) {
    std::vector<std::string_view> parts;
    std::size_t pos = 0;
    while (pos <= path.size()) {
        std::size_t end = path.find('/', pos);
        if (end == std::string_view::npos) {
            end = path.size();
        }
        std::string_view part = path.substr(pos, end - pos);
        if (part == "..") {
            if (!parts.empty()) {
                parts.pop_back();
            }
        } else if (!part.empty() && part != ".") {
            parts.push_back(part);
        }
        pos = end + 1;
    }
    if (parts.empty()) {
        return "/";
    }
    std::string result;
    for (std::string_view part : parts) {
        result += '/';
        result += part;
    }
    return result;
}

bool keptInDescription(unsigned char c) {
    if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9')) {
        return true;
    }
    return std::string_view("-._~/!$&'()*+,;=:@").find(static_cast<char>(c)) !=
           std::string_view::npos;
}

} // namespace

FileURL FileURL::fileURLWithPath(const std::string& path) {
    FileURL url;
    if (!path.empty() && path.front() == '/') {
        url.mPath = normalise(path);
    } else {
        url.mPath = normalise(currentDirectory() + "/" + path);
    }
    return url;
}

std::string FileURL::lastPathComponent() const {
    if (mPath.empty()) {
        return {};
    }
    if (mPath == "/") {
        return "/";
    }
    return mPath.substr(mPath.rfind('/') + 1);
}

std::string FileURL::pathExtension() const {
    const std::string name = lastPathComponent();
    const std::size_t dot = name.rfind('.');
    // A leading dot marks a hidden file, not an extension; a trailing dot carries none.
    if (dot == std::string::npos || dot == 0 || dot + 1 == name.size()) {
        return {};
    }
    return name.substr(dot + 1);
}

FileURL FileURL::deletingLastPathComponent() const {
    if (mPath.empty()) {
        return {};
    }
    FileURL url;
    const std::size_t slash = mPath.rfind('/');
    url.mPath = slash == 0 || slash == std::string::npos ? "/" : mPath.substr(0, slash);
    return url;
}

FileURL FileURL::appendingPathComponent(const std::string& component) const {
    FileURL url;
    url.mPath = normalise((mPath.empty() ? currentDirectory() : mPath) + "/" + component);
    return url;
}

std::string FileURL::description() const {
    static constexpr char kHex[] = "0123456789ABCDEF";
    std::string text = "file://";
    text.reserve(text.size() + mPath.size());
    for (char ch : mPath) {
        const auto c = static_cast<unsigned char>(ch);
        if (keptInDescription(c)) {
            text += ch;
        } else {
            text += '%';
            text += kHex[c >> 4];
            text += kHex[c & 0x0F];
        }
    }
    return text;
}

} // namespace vantelo_sounds
