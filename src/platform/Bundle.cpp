#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <vantelo_sounds/platform/Bundle.hpp>
#include <vantelo_sounds/platform/FileManager.hpp>

namespace vantelo_sounds {

namespace {

constexpr const char* kDefaultTable = "Localizable";

std::string defaultResourcePath() {
    namespace fs = std::filesystem;
    if (const char* bundle = std::getenv("VANTELO_SOUNDS_BUNDLE"); bundle && *bundle) {
        return FileURL::fileURLWithPath(bundle).path();
    }
    std::error_code error;
    const fs::path executable = fs::read_symlink("/proc/self/exe", error);
    if (error) {
        return FileURL::fileURLWithPath(".").path();
    }
    const fs::path folder = executable.parent_path();
    if (fs::is_directory(folder / "resources", error)) {
        return (folder / "resources").string();
    }
    return folder.string();
}

void appendUtf8(std::string& out, std::uint32_t code) {
    if (code < 0x80) {
        out += static_cast<char>(code);
    } else if (code < 0x800) {
        out += static_cast<char>(0xC0 | (code >> 6));
        out += static_cast<char>(0x80 | (code & 0x3F));
    } else {
        out += static_cast<char>(0xE0 | (code >> 12));
        out += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (code & 0x3F));
    }
}

// A small reader of the .strings syntax. Every method returns false on malformed input.
class StringsReader {
public:
    explicit StringsReader(const std::string& text)
        : mText(text) {
        if (mText.compare(0, 3, "\xEF\xBB\xBF") == 0) {
            mPos = 3;
        }
    }

    bool atEnd() {
        skipSpaceAndComments();
        return mPos >= mText.size();
    }

    bool expect(char c) {
        skipSpaceAndComments();
        if (mPos < mText.size() && mText[mPos] == c) {
            ++mPos;
            return true;
        }
        return false;
    }

    // A quoted string with escapes, or a bare word of letters, digits and "_.-".
    bool token(std::string& out) {
        skipSpaceAndComments();
        out.clear();
        if (mPos >= mText.size()) {
            return false;
        }
        if (mText[mPos] != '"') {
            while (mPos < mText.size() && isBare(mText[mPos])) {
                out += mText[mPos++];
            }
            return !out.empty();
        }
        ++mPos;
        while (mPos < mText.size()) {
            char c = mText[mPos++];
            if (c == '"') {
                return true;
            }
            if (c != '\\') {
                out += c;
                continue;
            }
            if (mPos >= mText.size()) {
                return false;
            }
            c = mText[mPos++];
            switch (c) {
            case 'n':
                out += '\n';
                break;
            case 't':
                out += '\t';
                break;
            case 'r':
                out += '\r';
                break;
            case 'U':
            case 'u': {
                if (mPos + 4 > mText.size()) {
                    return false;
                }
                std::uint32_t code = 0;
                for (int i = 0; i < 4; ++i) {
                    const char h = mText[mPos++];
                    code <<= 4;
                    if (h >= '0' && h <= '9') {
                        code |= static_cast<std::uint32_t>(h - '0');
                    } else if (h >= 'a' && h <= 'f') {
                        code |= static_cast<std::uint32_t>(h - 'a' + 10);
                    } else if (h >= 'A' && h <= 'F') {
                        code |= static_cast<std::uint32_t>(h - 'A' + 10);
                    } else {
                        return false;
                    }
                }
                appendUtf8(out, code);
                break;
            }
            default:
                out += c;
                break; // \" \\ \' and anything else stand for themselves
            }
        }
        return false; // unterminated
    }

private:
    static bool isBare(char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
               c == '_' || c == '.' || c == '-';
    }

    void skipSpaceAndComments() {
        while (mPos < mText.size()) {
            const char c = mText[mPos];
            if (c == ' ' || c == '\t' || c == '\n' || c == '\r') {
                ++mPos;
            } else if (mText.compare(mPos, 2, "//") == 0) {
                const std::size_t end = mText.find('\n', mPos);
                mPos = end == std::string::npos ? mText.size() : end + 1;
            } else if (mText.compare(mPos, 2, "/*") == 0) {
                const std::size_t end = mText.find("*/", mPos + 2);
                mPos = end == std::string::npos ? mText.size() : end + 2;
            } else {
                return;
            }
        }
    }

    const std::string& mText;
    std::size_t mPos = 0;
};

} // namespace

Bundle& Bundle::main() {
    static Bundle bundle;
    return bundle;
}

void Bundle::setResourcePath(const std::string& path) {
    std::lock_guard lock(mMutex);
    mResourcePath = FileURL::fileURLWithPath(path).path();
    mTables.clear();
}

std::string Bundle::resourcePath() {
    std::lock_guard lock(mMutex);
    if (!mResourcePath) {
        mResourcePath = defaultResourcePath();
    }
    return *mResourcePath;
}

std::optional<FileURL> Bundle::urlForResource(const std::string& name, const std::string& ext) {
    if (name.empty()) {
        return std::nullopt;
    }
    const std::string file = ext.empty() ? name : name + "." + ext;
    const FileURL url = FileURL::fileURLWithPath(resourcePath()).appendingPathComponent(file);
    if (!FileManager::defaultManager().fileExistsAtPath(url.path())) {
        return std::nullopt;
    }
    return url;
}

std::string Bundle::localizedString(const std::string& key, const std::string& value,
                                    const std::string& table) {
    {
        std::lock_guard lock(mMutex);
        const auto& strings = tableLocked(table.empty() ? kDefaultTable : table);
        if (auto it = strings.find(key); it != strings.end()) {
            return it->second;
        }
    }
    return value.empty() ? key : value;
}

void Bundle::setLocalizations(std::map<std::string, std::string> strings) {
    std::lock_guard lock(mMutex);
    mTables[kDefaultTable] = std::move(strings);
}

const std::map<std::string, std::string>& Bundle::tableLocked(const std::string& name) {
    if (auto it = mTables.find(name); it != mTables.end()) {
        return it->second;
    }
    if (!mResourcePath) {
        mResourcePath = defaultResourcePath();
    }
    std::map<std::string, std::string> strings;
    std::ifstream file(*mResourcePath + "/" + name + ".strings", std::ios::binary);
    if (file) {
        std::ostringstream text;
        text << file.rdbuf();
        strings = parseStrings(text.str());
    }
    return mTables.emplace(name, std::move(strings)).first->second;
}

std::map<std::string, std::string> Bundle::parseStrings(const std::string& text) {
    std::map<std::string, std::string> strings;
    StringsReader reader(text);
    std::string key;
    std::string value;
    while (!reader.atEnd()) {
        if (!reader.token(key)) {
            break;
        }
        if (reader.expect(';')) { // "key"; stands for "key" = "key";
            strings[key] = key;
            continue;
        }
        if (!reader.expect('=') || !reader.token(value) || !reader.expect(';')) {
            break;
        }
        strings[key] = value;
    }
    return strings;
}

} // namespace vantelo_sounds
