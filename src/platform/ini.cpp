// Initialisation files.
//
// Format (UTF-8 or ASCII text, one item per line, LF or CRLF endings):
//   [category]      starts a category; the name is the text between '[' and
//                   the last ']', trimmed; anything after that ']' is ignored.
//   key=value       an entry of the current category; key and value are
//                   trimmed of spaces and tabs; the value is everything after
//                   the first '=' (no quoting, no escapes, no inline
//                   comments: "a ; b" is a value).
//   # text, ; text  comment lines; blank lines.
// Entries before the first "[category]" line belong to the unnamed category
// "". Category and key names compare case-insensitively (ASCII) and keep
// the spelling they were first written with. A category that appears twice
// is one category (the later lines join the first); a key that appears
// twice in a category keeps its last value, in the place of its first line.
// Any other line (no '=', an empty key, an unclosed '[') is kept but means
// nothing.
//
// MIniStartS loads the whole file into memory: a list of categories in file
// order, each holding its lines in order. A missing file is an empty ini,
// created on the first write. Lines are kept verbatim (comments, blank
// lines, spacing, a leading byte-order mark) and only the entries that
// change are rewritten as "key=value", so hand-edited files survive a
// write-back. A new entry goes after the last non-blank line of its
// category; a new category goes at the end of the file after a blank line.
// MIniEndS writes the file back only if something changed: into
// "<path>.tmp", then renamed over the file, so a failed write never leaves
// a half-written file. It frees the handle in any case.
//
// Results: 0 success; 1 for a missing category or key, or for the end of
// the category enumeration; 2 for a null handle or argument, a capacity
// below 1, a buffer too small for the answer (the buffer then receives "",
// never a truncated value, and the enumeration does not move on, so it can
// be retried with a larger buffer) or a name or value that a load would not
// give back as written; 4 when memory runs out; 4103 when the file cannot
// be written. A null category means "".
//
// Writes refuse a key that is empty, has surrounding blanks, holds '=' or a
// line break or starts with '[', '#' or ';'; a category name with
// surrounding blanks, a ']' or a line break; a value with a line break. The
// value is trimmed as a load would, so it reads back the same before and
// after a write-back. MIniRemoveS with a null key removes the whole
// category: its header and all its lines; for the unnamed category, which
// has no header, only its entries (1 when it has none).
//
// FindFirst/FindNextCategory list the categories in file order; the unnamed
// category is listed (as "") only while it holds an entry. Removing a
// category during the enumeration does not disturb it.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <new>
#include <string>
#include <string_view>
#include <vector>

#include "scrivo/platform.h"

namespace {

constexpr char kBom[] = "\xEF\xBB\xBF";

struct IniLine {
    bool isEntry;
    std::string raw;  // the text of the line as it is written back
    std::string key;
    std::string value;
};

struct IniCategory {
    std::string name;
    std::string header;  // raw "[name]" line; unused for the unnamed one
    std::vector<IniLine> lines;
};

bool IsBlank(char c) {
    return c == ' ' || c == '\t';
}

std::string_view Trim(std::string_view s) {
    while (!s.empty() && IsBlank(s.front())) s.remove_prefix(1);
    while (!s.empty() && IsBlank(s.back())) s.remove_suffix(1);
    return s;
}

char LowerAscii(char c) {
    return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c;
}

bool SameName(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) return false;
    for (size_t i = 0; i < a.size(); ++i) {
        if (LowerAscii(a[i]) != LowerAscii(b[i])) return false;
    }
    return true;
}

// A name is accepted only if a load of the written line gives it back.
bool ValidName(std::string_view s, bool isKey) {
    if (Trim(s) != s) return false;
    if (s.find_first_of(isKey ? "=\r\n" : "]\r\n") != std::string_view::npos) return false;
    if (isKey && (s.empty() || s[0] == '[' || s[0] == '#' || s[0] == ';')) return false;
    return true;
}

MRESULT CopyOut(std::string_view s, char* out, int32_t capacity) {
    if (s.size() >= static_cast<size_t>(capacity)) {
        out[0] = '\0';
        return MERR_INVALID_PARAM;
    }
    std::memcpy(out, s.data(), s.size());
    out[s.size()] = '\0';
    return MOK;
}

IniLine Entry(std::string_view key, std::string_view value) {
    std::string raw;
    raw.reserve(key.size() + value.size() + 1);
    raw.append(key).append("=").append(value);
    return IniLine{true, std::move(raw), std::string(key), std::string(value)};
}

}  // namespace

struct MIni {
    std::string path;
    std::vector<IniCategory> categories;  // [0] is the unnamed category
    size_t cursor = 0;                    // next category to enumerate
    bool dirty = false;
    bool bom = false;

    IniCategory* FindCategory(std::string_view name) {
        for (auto& c : categories) {
            if (SameName(c.name, name)) return &c;
        }
        return nullptr;
    }

    static IniLine* FindEntry(IniCategory& c, std::string_view key) {
        for (auto& l : c.lines) {
            if (l.isEntry && SameName(l.key, key)) return &l;
        }
        return nullptr;
    }

    void Parse(std::string_view text) {
        if (text.substr(0, 3) == kBom) {
            bom = true;
            text.remove_prefix(3);
        }
        size_t current = 0;
        while (!text.empty()) {
            const size_t eol = text.find('\n');
            std::string_view line = text.substr(0, eol);
            text.remove_prefix(eol == std::string_view::npos ? text.size() : eol + 1);
            if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
            ParseLine(line, current);
        }
    }

    void ParseLine(std::string_view line, size_t& current) {
        const std::string_view t = Trim(line);
        if (!t.empty() && t[0] == '[') {
            const size_t close = t.rfind(']');
            if (close != std::string_view::npos) {
                const std::string_view name = Trim(t.substr(1, close - 1));
                for (current = 0; current < categories.size(); ++current) {
                    if (SameName(categories[current].name, name)) return;
                }
                categories.push_back(IniCategory{std::string(name), std::string(line), {}});
                return;
            }
        }
        IniCategory& c = categories[current];
        const size_t eq = t.find('=');
        if (!t.empty() && t[0] != '#' && t[0] != ';' && t[0] != '[' &&
            eq != std::string_view::npos && eq > 0) {
            const std::string_view key = Trim(t.substr(0, eq));
            const std::string_view value = Trim(t.substr(eq + 1));
            if (IniLine* old = FindEntry(c, key)) {
                *old = Entry(old->key, value);
            } else {
                c.lines.push_back(
                    IniLine{true, std::string(line), std::string(key), std::string(value)});
            }
            return;
        }
        c.lines.push_back(IniLine{false, std::string(line), {}, {}});
    }

    std::string Serialise() const {
        std::string out;
        if (bom) out += kBom;
        for (size_t i = 0; i < categories.size(); ++i) {
            if (i > 0) out.append(categories[i].header).append("\n");
            for (const auto& l : categories[i].lines) out.append(l.raw).append("\n");
        }
        return out;
    }

    bool Save() const {
        const std::string text = Serialise();
        const std::string tmp = path + ".tmp";
        std::FILE* f = std::fopen(tmp.c_str(), "wb");
        if (f == nullptr) return false;
        bool ok = std::fwrite(text.data(), 1, text.size(), f) == text.size();
        ok = (std::fclose(f) == 0) && ok;
        if (ok) ok = std::rename(tmp.c_str(), path.c_str()) == 0;
        if (!ok) std::remove(tmp.c_str());
        return ok;
    }
};

namespace {

// Loads path; false when the file exists but cannot be read.
bool Load(MIni& ini) {
    std::FILE* f = std::fopen(ini.path.c_str(), "rb");
    if (f == nullptr) return errno == ENOENT;
    std::string text;
    char chunk[4096];
    size_t n;
    while ((n = std::fread(chunk, 1, sizeof chunk, f)) > 0) text.append(chunk, n);
    const bool ok = std::ferror(f) == 0;
    std::fclose(f);
    if (ok) ini.Parse(text);
    return ok;
}

MRESULT Write(MIni& ini, std::string_view category, std::string_view key, std::string_view value) {
    if (!ValidName(category, false) || !ValidName(key, true) ||
        value.find_first_of("\r\n") != std::string_view::npos) {
        return MERR_INVALID_PARAM;
    }
    value = Trim(value);
    IniCategory* c = ini.FindCategory(category);
    if (c == nullptr) {
        IniCategory& last = ini.categories.back();
        const bool fileEmpty = ini.categories.size() == 1 && last.lines.empty();
        if (!fileEmpty && (last.lines.empty() || !Trim(last.lines.back().raw).empty())) {
            last.lines.push_back(IniLine{false, {}, {}, {}});
        }
        std::string header = "[";
        header.append(category).append("]");
        ini.categories.push_back(IniCategory{std::string(category), std::move(header), {}});
        c = &ini.categories.back();
    }
    if (IniLine* e = MIni::FindEntry(*c, key)) {
        if (e->value == value) return MOK;
        *e = Entry(e->key, value);
    } else {
        size_t at = c->lines.size();
        while (at > 0 && !c->lines[at - 1].isEntry && Trim(c->lines[at - 1].raw).empty()) --at;
        c->lines.insert(c->lines.begin() + static_cast<ptrdiff_t>(at), Entry(key, value));
    }
    ini.dirty = true;
    return MOK;
}

MRESULT Remove(MIni& ini, std::string_view category, const char* key) {
    size_t i = 0;
    while (i < ini.categories.size() && !SameName(ini.categories[i].name, category)) ++i;
    if (i == ini.categories.size()) return MERR_UNKNOWN;
    auto& lines = ini.categories[i].lines;
    if (key == nullptr) {
        if (i == 0) {
            if (std::erase_if(lines, [](const IniLine& l) { return l.isEntry; }) == 0) {
                return MERR_UNKNOWN;
            }
        } else {
            ini.categories.erase(ini.categories.begin() + static_cast<ptrdiff_t>(i));
            if (i < ini.cursor) --ini.cursor;
        }
        ini.dirty = true;
        return MOK;
    }
    for (auto it = lines.begin(); it != lines.end(); ++it) {
        if (it->isEntry && SameName(it->key, key)) {
            lines.erase(it);
            ini.dirty = true;
            return MOK;
        }
    }
    return MERR_UNKNOWN;
}

MRESULT NextCategory(MIni& ini, char* category, int32_t capacity) {
    if (ini.cursor == 0) {
        const auto& lines = ini.categories[0].lines;
        bool hasEntry = false;
        for (const auto& l : lines) hasEntry = hasEntry || l.isEntry;
        if (!hasEntry) ini.cursor = 1;
    }
    if (ini.cursor >= ini.categories.size()) {
        category[0] = '\0';
        return MERR_UNKNOWN;
    }
    const MRESULT r = CopyOut(ini.categories[ini.cursor].name, category, capacity);
    if (r == MOK) ++ini.cursor;
    return r;
}

std::string_view CategoryName(const char* category) {
    return category == nullptr ? std::string_view() : std::string_view(category);
}

}  // namespace

extern "C" {

MHIni MIniStartS(const char* path) {
    if (path == nullptr || path[0] == '\0') return nullptr;
    MIni* ini = new (std::nothrow) MIni;
    if (ini == nullptr) return nullptr;
    try {
        ini->path = path;
        ini->categories.push_back(IniCategory{});
        if (Load(*ini)) return ini;
    } catch (...) {
    }
    delete ini;
    return nullptr;
}

MRESULT MIniEndS(MHIni ini) {
    if (ini == nullptr) return MERR_INVALID_PARAM;
    MRESULT r = MOK;
    try {
        if (ini->dirty && !ini->Save()) r = MERR_WRITE_FAILED;
    } catch (...) {
        r = MERR_NO_MEMORY;
    }
    delete ini;
    return r;
}

MRESULT MIniReadS(MHIni ini, const char* category, const char* key, char* value, int32_t capacity) {
    if (ini == nullptr || key == nullptr || value == nullptr || capacity < 1) {
        return MERR_INVALID_PARAM;
    }
    value[0] = '\0';
    IniCategory* c = ini->FindCategory(CategoryName(category));
    const IniLine* e = c == nullptr ? nullptr : MIni::FindEntry(*c, key);
    if (e == nullptr) return MERR_UNKNOWN;
    return CopyOut(e->value, value, capacity);
}

MRESULT MIniWriteS(MHIni ini, const char* category, const char* key, const char* value) {
    if (ini == nullptr || key == nullptr || value == nullptr) return MERR_INVALID_PARAM;
    try {
        return Write(*ini, CategoryName(category), key, value);
    } catch (...) {
        return MERR_NO_MEMORY;
    }
}

MRESULT MIniRemoveS(MHIni ini, const char* category, const char* key) {
    if (ini == nullptr) return MERR_INVALID_PARAM;
    return Remove(*ini, CategoryName(category), key);
}

MRESULT MIniFindFirstCategoryS(MHIni ini, char* category, int32_t capacity) {
    if (ini == nullptr || category == nullptr || capacity < 1) return MERR_INVALID_PARAM;
    ini->cursor = 0;
    return NextCategory(*ini, category, capacity);
}

MRESULT MIniFindNextCategoryS(MHIni ini, char* category, int32_t capacity) {
    if (ini == nullptr || category == nullptr || capacity < 1) return MERR_INVALID_PARAM;
    return NextCategory(*ini, category, capacity);
}

MRESULT MIniReadSingleS(const char* path, const char* category, const char* key, char* value,
                        int32_t capacity) {
    if (path == nullptr || key == nullptr || value == nullptr || capacity < 1) {
        return MERR_INVALID_PARAM;
    }
    MHIni ini = MIniStartS(path);
    if (ini == nullptr) {
        value[0] = '\0';
        return MERR_UNKNOWN;
    }
    const MRESULT r = MIniReadS(ini, category, key, value, capacity);
    MIniEndS(ini);
    return r;
}

MRESULT MIniWriteSingleS(const char* path, const char* category, const char* key,
                         const char* value) {
    if (path == nullptr || key == nullptr || value == nullptr) return MERR_INVALID_PARAM;
    MHIni ini = MIniStartS(path);
    if (ini == nullptr) return MERR_UNKNOWN;
    const MRESULT w = MIniWriteS(ini, category, key, value);
    const MRESULT e = MIniEndS(ini);
    return w != MOK ? w : e;
}

}  // extern "C"
