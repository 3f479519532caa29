#include "wholeFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
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

    [[nodiscard]] const fs::path& path() const { return path_; }

private:
    fs::path path_;
};

// Takes the room for a moment and gives it back.
void requireRoom(const fs::path& folder, std::size_t bytes) {
    std::string name = (folder / "room-XXXXXX").string();
    const int file = mkstemp(name.data());
    const int error = file < 0 ? errno : posix_fallocate(file, 0, static_cast<off_t>(bytes));
    if (file >= 0) {
        close(file);
        unlink(name.c_str());
    }
    if (error != 0) throw std::runtime_error(std::generic_category().message(error));
}

void moveTo(const fs::path& from, const fs::path& to) {
    std::error_code error;
    fs::rename(from, to, error);
    if (error) throw std::runtime_error(error.message());
}

}  // namespace

void writeWhole(const fs::path& target, std::size_t room,
                const std::function<void(const fs::path&)>& write) {
    const FolderBeside folder(target);
    requireRoom(folder.path(), room);
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
