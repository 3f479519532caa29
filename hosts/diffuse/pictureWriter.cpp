// SPDX-License-Identifier: MIT
#include <cerrno>
#include <cstring>
#include <fstream>
#include <string>

#include "formats/Format.h"
#include "pictureFile.h"

namespace diffuse {

namespace {

namespace fs = std::filesystem;

std::string failure(const fs::path& file) {
    return "cannot write " + file.string() + ": ";
}

}  // namespace

void requirePlace(const fs::path& file) {
    explainFailures(failure(file), [&] {
        const fs::path folder = file.has_parent_path() ? file.parent_path() : ".";
        if (!fs::is_directory(folder)) throw Refusal(std::strerror(ENOENT));
        if (fs::is_directory(file)) throw Refusal(std::strerror(EISDIR));
        if (fs::exists(file) && !fs::is_regular_file(file)) {
            throw Refusal("what stands there is no plain file");
        }
    });
}

void requireWritable(const fs::path& file, const Picture& picture) {
    explainFailures(failure(file), [&] {
        const Format* format = formatOfName(file);
        if (!format) throw Refusal("no known format has this file name extension");
        if (!isWritten(file)) {
            throw Refusal(std::string(format->write ? "two files" : format->name) +
                          " are read and not written; .nii.gz, .nrrd and .mha are");
        }
        requireHeld(*format, picture);
    });
    requirePlace(file);
}

std::unique_ptr<StagedFile> stagePicture(const fs::path& file, const Picture& picture) {
    std::unique_ptr<StagedFile> staged;
    explainFailures(failure(file), [&] {
        staged = std::make_unique<StagedFile>(file);
        formatOfName(file)->write(staged->path(), picture);
        staged->store();
    });
    return staged;
}

std::unique_ptr<StagedFile> stageText(const fs::path& file, const std::string& text) {
    std::unique_ptr<StagedFile> staged;
    explainFailures(failure(file), [&] {
        staged = std::make_unique<StagedFile>(file);
        std::ofstream stream(staged->path(), std::ios::binary);
        if (!stream.write(text.data(), static_cast<std::streamsize>(text.size())).flush()) {
            throw std::runtime_error(std::strerror(errno));
        }
        staged->store();
    });
    return staged;
}

void commitFile(const StagedFile& file) {
    explainFailures(failure(file.target()), [&] { file.commit(); });
}

}  // namespace diffuse
