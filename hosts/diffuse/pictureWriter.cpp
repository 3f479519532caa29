#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <string>

#include "formats/Format.h"
#include "formats/rawData.h"
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
    } catch (const fs::filesystem_error& error) {
        fail(error.code().message());
    } catch (const std::exception& error) {
        fail(error.what());
    }
}

const Format& requireFormat(const fs::path& file) {
    const Format* format = formatOfName(file);
    if (!format) throw Refusal("no known format has this file name extension");
    if (!format->write) {
        throw Refusal(std::string(format->name) +
                      " is read and not written; NIfTI, NRRD and MetaImage are");
    }
    return *format;
}

// Of the samples, uncompressed, and a header. Noise takes a little more compressed than not.
std::size_t roomFor(const Picture& picture) {
    const std::size_t bytes = picture.values.size() * sizeOf(picture.sampleType);
    return bytes + bytes / 8 + (1 << 14);
}

}  // namespace

std::vector<fs::path> filesWrittenTo(const fs::path& file) {
    std::vector<fs::path> files = {file};
    const Format* format = formatOfName(file);
    if (!format || !format->writtenBeside) return files;
    for (const std::string& name : format->writtenBeside(file)) {
        files.push_back(file.parent_path() / name);
    }
    return files;
}

void requireWritable(const fs::path& file, const Picture& picture) {
    explainFailures(file, [&] {
        const Format& format = requireFormat(file);
        if (format.requireHeld) format.requireHeld(picture);
        if (!format.keepsProfile && picture.notes.contains(colourProfile)) {
            throw Refusal(std::string(format.name) +
                          " holds no colour profile; PNG, JPEG and TIFF do");
        }
        const fs::path folder = file.has_parent_path() ? file.parent_path() : ".";
        if (!fs::is_directory(folder)) throw Refusal(std::strerror(ENOENT));
        for (const fs::path& written : filesWrittenTo(file)) {
            if (fs::is_directory(written)) throw Refusal(std::strerror(EISDIR));
            if (fs::exists(written) && !fs::is_regular_file(written)) {
                throw Refusal("what stands there is no plain file");
            }
            if (written != file) requireFree(file, written.filename().string());
        }
    });
}

std::unique_ptr<StagedFile> stage(const fs::path& file) {
    std::unique_ptr<StagedFile> staged;
    explainFailures(file, [&] { staged = std::make_unique<StagedFile>(file); });
    return staged;
}

void writePicture(const StagedFile& file, const Picture& picture) {
    explainFailures(file.target(), [&] {
        file.fill(roomFor(picture),
                  [&](const fs::path& beside) { requireFormat(beside).write(beside, picture); });
    });
}

void commitPicture(const StagedFile& file) {
    explainFailures(file.target(), [&] { file.commit(); });
}

}  // namespace diffuse
