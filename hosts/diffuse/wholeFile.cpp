#include "wholeFile.h"

#include <stdlib.h>

#include <cerrno>
#include <stdexcept>
#include <string>
#include <system_error>

namespace diffuse {

namespace {

namespace fs = std::filesystem;

// A folder of its own, gone with the object.
class FolderBeside {
public:
    explicit FolderBeside(const fs::path& target) {
        const fs::path parent = target.has_parent_path() ? target.parent_path() : ".";
        std::string name = (parent / ".diffuse-XXXXXX").string();
        if (!mkdtemp(name.data())) throw std::runtime_error(std::generic_category().message(errno));
        path_ = name;
    }
    ~FolderBeside() {
        std::error_code ignored;
        fs::remove_all(path_, ignored);
    }
    FolderBeside(const FolderBeside&) = delete;
    FolderBeside& operator=(const FolderBeside&) = delete;

    const fs::path& path() const { return path_; }

private:
    fs::path path_;
};

void moveTo(const fs::path& from, const fs::path& to) {
    std::error_code error;
    fs::rename(from, to, error);
    if (error) throw std::runtime_error(error.message());
}

}  // namespace

void writeWhole(const fs::path& target, const std::function<void(const fs::path&)>& write) {
    const FolderBeside folder(target);
    const fs::path beside = folder.path() / target.filename();
    write(beside);
    if (!fs::exists(beside)) throw std::runtime_error("nothing was written");
    for (const fs::directory_entry& entry : fs::directory_iterator(folder.path())) {
        if (entry.path() != beside) {
            moveTo(entry.path(), target.parent_path() / entry.path().filename());
        }
    }
    moveTo(beside, target);
}

}  // namespace diffuse
