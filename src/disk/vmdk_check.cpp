#include "disk/vmdk_check.h"

#include "disk/vmdk_disk.h"
#include "foundation/ql_portable_dir.h"
#include "foundation/ql_string.h"
#include "foundation/uni_fileio.h"
#include "foundation/visible_text.h"

#include <algorithm>
#include <fcntl.h>
#include <memory>
#include <new>
#include <unistd.h>
#include <utility>

namespace quarry {

namespace {

std::wstring without_double_quotes(std::wstring text) {
    std::erase(text, L'"');
    return text;
}

bool contains(std::wstring_view text, std::wstring_view part) {
    return text.find(part) != std::wstring_view::npos;
}

// What opening a file for reading would answer. A hint is a disk's own word, and opening a device acts on it,
// so only a regular file is opened for that.
bool can_be_opened(const std::wstring& path) {
    if (!uni::may_be_opened_unasked(path)) {
        return uni::may_be_read(path);
    }
    const int descriptor = uni::open_file(path, O_RDONLY, 0404);
    if (descriptor == -1) {
        return false;
    }
    ::close(descriptor);
    return true;
}

enum class verdict { pass, fail, look_again };

class chain_check {
  public:
    // The files that are suggested so far are those that the user listed.
    chain_check(std::ostringstream& stream, std::vector<std::wstring>& suggested)
        : m_stream(stream), m_suggested(suggested), m_listed(suggested.size()) {}

    // Looks at the suggested files. `look_again`: one was added to them.
    verdict pass() {
        const vmdk_file* orphan = nullptr;
        if (!open_files() || !find_orphan(orphan)) {
            return verdict::fail;
        }
        if (orphan == nullptr || is_listed_by_name(*orphan)) {
            return has_base() ? verdict::pass : verdict::fail;
        }
        return suggest_parent(*orphan);
    }

    // The suggested files, added and not yet linked.
    [[nodiscard]] const std::shared_ptr<vmdk_disk>& disk() const { return m_disk; }

  private:
    // Opens the files that no earlier pass has opened.
    bool open_files() {
        for (; m_opened < m_suggested.size(); ++m_opened) {
            const std::wstring& path = m_suggested[m_opened];
            const std::size_t separator = path.rfind(L'/');
            if (m_directory.empty() && separator != std::wstring::npos) {
                m_directory = path.substr(0, separator + 1);
            }
            try {
                const bool may_be_opened = m_opened < m_listed || uni::may_be_opened_unasked(path);
                if (!may_be_opened || !m_disk->add_file(path)) {
                    m_stream << visible_text(narrow(path)) << " can't be opened\n";
                    return false;
                }
            } catch (const std::bad_alloc&) {
                m_stream << "prob creating virtual vmware disk mapping\n";
                return false;
            }
        }
        return true;
    }

    // The first file, in the order of content IDs, whose parent is not among the files; null if there is
    // none. False if a file before it names itself. Notes the bases on the way.
    bool find_orphan(const vmdk_file*& orphan) {
        m_base_in_front = nullptr;
        for (const auto& [cid, file] : m_disk->m_files) {
            if (file->m_parent_cid == cid_of_no_parent) {
                m_base_in_front = file.get();
            } else if (!m_disk->m_files.contains(file->m_parent_cid)) {
                orphan = file.get();
                return true;
            } else if (file->m_cid == file->m_parent_cid) {
                say("Child VMDK CID errors, aborting\n");
                return false;
            }
        }
        return true;
    }

    bool has_base() const {
        return std::any_of(m_disk->m_files.begin(), m_disk->m_files.end(),
                           [](const auto& entry) { return entry.second->m_parent_cid == cid_of_no_parent; });
    }

    // Deliberate: a parent whose content ID is not in the list passes if a listed file has its name; it is
    // not reported as missing. The user sees the chain refused when it is opened, as no collection of
    // snapshots.
    bool is_listed_by_name(const vmdk_file& orphan) const {
        const std::wstring hint = without_double_quotes(widen(orphan.m_parent_hint));
        if (m_base_in_front != nullptr) {
            return contains(m_base_in_front->m_path, hint);
        }
        return m_suggested.size() >= 2 &&
               std::any_of(m_disk->m_files.begin(), m_disk->m_files.end(),
                           [&hint](const auto& entry) { return contains(entry.second->m_path, hint); });
    }

    // Where the hint says that the parent is; for a bare name, beside the listed files.
    std::wstring hinted_path(const vmdk_file& orphan) const {
        const bool from_windows = orphan.m_encoding.find("windows") != std::string::npos;
        const bool bare = orphan.m_parent_hint.find(from_windows ? '\\' : '/') == std::string::npos;
        return without_double_quotes((bare ? m_directory : std::wstring()) + widen(orphan.m_parent_hint));
    }

    verdict suggest_parent(const vmdk_file& orphan) {
        std::string hint = orphan.m_parent_hint;
        std::wstring candidate = hinted_path(orphan);
        if (!can_be_opened(candidate)) {
            std::wstring directory;
            std::wstring name;
            if (m_directory.empty() || contains(candidate, m_directory) ||
                !split_path(directory, name, candidate)) {
                say("Child VMDK points to a parent VMDK that doesn't exist, aborting\n");
                return verdict::fail;
            }
            // A path of another machine: the parent may have come along to where the listed files are.
            // Whether it did, the next pass finds out.
            candidate = m_directory + name;
            hint = '"' + narrow(candidate) + '"';
        }
        if (std::find(m_suggested.begin(), m_suggested.end(), candidate) != m_suggested.end()) {
            // It was looked at and is not the parent by its content ID: a file that bears the name, as above.
            return has_base() ? verdict::pass : verdict::fail;
        }
        say("=> vmdk file: " + visible_text(orphan.m_path_utf8) + "\n depends on parent vmdk " +
            visible_text(hint) + "\n");
        m_suggested.push_back(candidate);
        return verdict::look_again;
    }

    // Puts words in the place of those so far.
    void say(const std::string& words) {
        m_stream.str("");
        m_stream << words;
    }

    std::ostringstream& m_stream;
    std::vector<std::wstring>& m_suggested;
    std::size_t m_listed;
    std::size_t m_opened = 0;  // of the suggested files, from the first on
    std::wstring m_directory;  // of the first listed path that has one, with the "/" at its end
    std::shared_ptr<vmdk_disk> m_disk = std::make_shared<vmdk_disk>(false);
    const vmdk_file* m_base_in_front = nullptr;  // the last base before the orphan
};

// The files of a list that passes, as the check opened them; null for one that does not.
std::shared_ptr<vmdk_disk> checked_chain(const std::vector<std::wstring>& list, std::ostringstream& stream,
                                         std::vector<std::wstring>& suggested) {
    suggested = list;
    chain_check check(stream, suggested);
    verdict result = check.pass();
    const bool complete = result != verdict::look_again;
    // Ends because a path is suggested once, and each comes from a file that exists.
    while (result == verdict::look_again) {
        result = check.pass();
    }
    return complete && result == verdict::pass ? check.disk() : nullptr;
}

}  // namespace

bool check_list(const std::vector<std::wstring>& list, std::ostringstream& stream,
                std::vector<std::wstring>& suggested) {
    return checked_chain(list, stream, suggested) != nullptr;
}

bool check_virtual_disk(source& disk, std::ostringstream& stream, std::vector<std::wstring>& suggested) {
    std::shared_ptr<vmdk_disk> chain = checked_chain(disk.paths, stream, suggested);
    if (chain == nullptr) {
        return false;
    }
    // What does not make a chain is no use to anybody; opening the source says so.
    if (opened_bytes opened = link_chain(std::move(chain)); opened.is_usable) {
        disk.kept_open = std::make_shared<const opened_bytes>(std::move(opened));
    }
    return true;
}

bool as_shell_word(std::string& out, const std::vector<std::wstring>& list) {
    constexpr std::string_view acting_in_quotes = "\"$`\\";
    std::string word(1, '"');
    for (std::size_t i = 0; i < list.size(); ++i) {
        const std::string path = narrow(list[i]);
        // An interactive shell expands "!" in double quotes, and keeps the backslash that would stop it.
        if (visible_text(path) != path || path.find('!') != std::string::npos) {
            return false;
        }
        word += i == 0 ? "" : " | ";
        for (const char character : path) {
            if (acting_in_quotes.find(character) != std::string_view::npos) {
                word += '\\';
            }
            word += character;
        }
    }
    out = word + '"';
    return true;
}

}  // namespace quarry
