#include "tools/pvzan/files/file_list.h"

#include "tools/pvzan/files/input_file.h"
#include "tools/pvzan/files/temporary_file.h"
#include "tools/pvzan/report/message.h"

#include <algorithm>
#include <filesystem>

namespace tool {

namespace {

namespace fs = std::filesystem;

// Where a path goes below another directory: as it is, unless it leads out of it.
fs::path inner_path(const fs::path& path) {
    const fs::path normal = path.lexically_normal();
    const bool leads_out = normal.is_absolute() || (!normal.empty() && *normal.begin() == "..");
    if (!leads_out) {
        return normal == "." ? fs::path() : normal;
    }
    return normal.has_filename() ? normal.filename() : normal.parent_path().filename();
}

void walk(const fs::path& directory, const fs::path& mirrored, file_list& list) {
    std::error_code error;
    std::vector<fs::directory_entry> entries;
    for (fs::directory_iterator entry(directory, error), end; !error && entry != end;
         entry.increment(error)) {
        entries.push_back(*entry);
    }
    if (error) {
        list.errors.push_back(complaint_about(directory, "cannot read: " + error.message()));
    }
    std::ranges::sort(entries);
    for (const fs::directory_entry& entry : entries) {
        std::error_code ignored;
        const fs::path name = entry.path().filename();
        if (entry.is_symlink(ignored)) {
            continue;
        }
        if (entry.is_directory(ignored)) {
            if (name != ".git") {
                walk(entry.path(), mirrored / name, list);
            }
        } else if (is_temporary_name(name.native())) {
            if (is_left_over(entry.path())) {
                list.left_over.insert(entry.path());
            }
        } else if (entry.is_regular_file(ignored)) {
            list.files.push_back({entry.path(), mirrored / name, entry.file_size(ignored)});
        }
    }
}

} // namespace

file_list list_files(const std::vector<std::string>& arguments, bool recursive) {
    file_list list;
    for (const std::string& argument : arguments) {
        std::error_code error;
        if (is_standard_input(argument)) {
            list.files.push_back({argument, {}, 0});
        } else if (fs::is_directory(argument, error)) {
            if (recursive) {
                walk(argument, inner_path(argument), list);
            } else {
                list.errors.push_back(
                    complaint_about(argument, "is a directory; use -r to recurse into it"));
            }
        } else {
            const auto size = fs::file_size(argument, error);
            list.files.push_back({argument, inner_path(argument), error ? 0 : size});
        }
    }
    return list;
}

// In a folder of very many files, looking at all their names would take longer than the work.
void look_for_left_over(const std::string& folder, std::set<std::string>& left_over) {
    constexpr int most_names = 10'000;
    std::error_code error;
    fs::directory_iterator entry(folder.empty() ? "." : folder, error);
    for (int i = 0; i < most_names && !error && entry != fs::directory_iterator(); ++i) {
        const std::string name = entry->path().filename();
        if (is_temporary_name(name) && is_left_over(entry->path())) {
            left_over.insert(fs::path(folder) / name);
        }
        entry.increment(error);
    }
}

} // namespace tool
