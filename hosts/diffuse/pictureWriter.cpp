// SPDX-License-Identifier: MIT
#include <cerrno>
#include <cstring>
#include <functional>
#include <stdexcept>
#include <string>

#include "formats/Format.h"
#include "pictureFile.h"

namespace diffuse {

namespace {

namespace fs = std::filesystem;

// Turns what `work` throws into a std::runtime_error of one line.
void explainFailures(const fs::path& file, const std::function<void()>& work) {
    const auto fail = [&](const std::string& why) {
        throw std::runtime_error("cannot write " + file.string() + ": " + why);
    };
    try {
        work();
    } catch (const std::bad_alloc&) {
        fail("not enough memory");
    } catch (const std::exception& error) {
        fail(error.what());
    }
}

}  // namespace

void requireWritable(const fs::path& file, const Picture& picture) {
    explainFailures(file, [&] {
        const Format* format = formatOfName(file);
        if (!format) throw Refusal("no known format has this file name extension");
        if (!format->write || file.extension() == ".mhd" || file.extension() == ".nhdr") {
            throw Refusal(std::string(format->write ? "two files" : format->name) +
                          " are read and not written; .nii.gz, .nrrd and .mha are");
        }
        format->requireHeld(picture);
        if (!format->keepsProfile && picture.notes.contains(colourProfile)) {
            throw Refusal(std::string(format->name) +
                          " holds no colour profile; PNG, JPEG and TIFF do");
        }
        const fs::path folder = file.has_parent_path() ? file.parent_path() : ".";
        if (!fs::is_directory(folder)) throw Refusal(std::strerror(ENOENT));
        if (fs::is_directory(file)) throw Refusal(std::strerror(EISDIR));
        if (fs::exists(file) && !fs::is_regular_file(file)) {
            throw Refusal("what stands there is no plain file");
        }
    });
}

std::unique_ptr<StagedFile> stagePicture(const fs::path& file, const Picture& picture) {
    std::unique_ptr<StagedFile> staged;
    explainFailures(file, [&] {
        staged = std::make_unique<StagedFile>(file);
        formatOfName(file)->write(staged->path(), picture);
        staged->store();
    });
    return staged;
}

void commitPicture(const StagedFile& file) {
    explainFailures(file.target(), [&] { file.commit(); });
}

}  // namespace diffuse
