// NIfTI, whole or in two files, packed by gzip or not. The header goes through nifti_clib, which
// keeps both of its matrices with their codes, the samples through zlib.
#include <nifti/nifti2_io.h>
#include <zlib.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <utility>

#include "Format.h"
#include "rawData.h"

namespace diffuse {

namespace {

namespace fs = std::filesystem;

constexpr char headerNote[] = "nifti";  // the key of the header, then its extensions
constexpr int longest = 32767;          // samples along an axis

using Image = std::unique_ptr<nifti_image, void (*)(nifti_image*)>;

bool isPacked(const fs::path& file) {
    return file.extension() == ".gz";
}

// The other file of a pair, packed like this one; as it stands on the disk if it does.
fs::path otherFile(const fs::path& file) {
    const std::string packed = isPacked(file) ? ".gz" : "";
    const fs::path bare = packed.empty() ? file : fs::path(file).replace_extension();
    const std::string suffix = bare.extension() == ".hdr" ? ".img" : ".hdr";
    const fs::path other = fs::path(bare).replace_extension(suffix);
    const fs::path likely = other.string() + packed;
    const fs::path unlikely = packed.empty() ? other.string() + ".gz" : other.string();
    return !fs::exists(likely) && fs::exists(unlikely) ? unlikely : likely;
}

bool isPair(const fs::path& file) {
    const fs::path bare = isPacked(file) ? fs::path(file).replace_extension() : file;
    return bare.extension() == ".hdr" || bare.extension() == ".img";
}

std::vector<std::string> companionsOf(const fs::path& file) {
    return isPair(file) ? std::vector{otherFile(file).filename().string()}
                        : std::vector<std::string>{};
}

// A file that is written, packed if its name says so.
class Sink {
public:
    explicit Sink(const fs::path& file)
        : file_(gzopen(file.c_str(), isPacked(file) ? "wb" : "wT")) {
        if (!file_) throw std::runtime_error(std::strerror(errno));
    }
    ~Sink() {
        if (file_) gzclose(file_);
    }
    Sink(const Sink&) = delete;
    Sink& operator=(const Sink&) = delete;

    void write(std::string_view bytes) {
        constexpr std::size_t most = 1 << 30;
        while (!bytes.empty()) {
            const std::string_view part = bytes.substr(0, most);
            if (gzwrite(file_, part.data(), static_cast<unsigned>(part.size())) <= 0) fail();
            bytes.remove_prefix(part.size());
        }
    }
    // What has not reached the disk.
    void close() {
        if (gzclose(std::exchange(file_, nullptr)) != Z_OK) fail();
    }

private:
    [[noreturn]] static void fail() { throw std::runtime_error(std::strerror(errno)); }

    gzFile file_;
};

double unitOf(const nifti_image& image) {
    switch (image.xyz_units) {
        case NIFTI_UNITS_METER:
            return 1000;
        case NIFTI_UNITS_MICRON:
            return 1e-3;
        default:
            return 1;
    }
}

// The axes without extents; NIfTI counts to the right and to the front, pictures the other way. The
// matrix of the affine transform goes before that of the scanner. Without either the place is
// unknown.
void placePicture(const nifti_image& image, Picture& picture) {
    const bool isPlaced = image.sform_code > 0 || image.qform_code > 0;
    const nifti_dmat44& matrix = image.sform_code > 0 ? image.sto_xyz : image.qto_xyz;
    const double unit = unitOf(image);
    const double signs[] = {-unit, -unit, unit};
    for (int a = 0; a < 3; ++a) {
        Axis& axis = picture.axes[a];
        axis.spacing = a < image.dim[0] ? unit * std::abs(image.pixdim[a + 1]) : 1;
        if (!isPlaced) continue;
        double squares = 0;
        for (int i = 0; i < 3; ++i) squares += matrix.m[i][a] * matrix.m[i][a];
        axis.spacing = unit * std::sqrt(squares);
        for (int i = 0; i < 3; ++i) {
            axis.direction.push_back(matrix.m[i][a] * signs[i] / axis.spacing);
        }
        picture.origin.push_back(matrix.m[a][3] * signs[a]);
    }
}

void describeSamples(const nifti_image& image, Contents& contents) {
    Picture& picture = contents.picture;
    const std::pair<int, SampleType> types[] = {
        {DT_UINT8, SampleType::uint8},     {DT_INT8, SampleType::int8},
        {DT_UINT16, SampleType::uint16},   {DT_INT16, SampleType::int16},
        {DT_UINT32, SampleType::uint32},   {DT_INT32, SampleType::int32},
        {DT_UINT64, SampleType::uint64},   {DT_INT64, SampleType::int64},
        {DT_FLOAT32, SampleType::float32}, {DT_FLOAT64, SampleType::float64},
        {DT_RGB24, SampleType::uint8},     {DT_RGBA32, SampleType::uint8}};
    const auto* type = std::ranges::find(types, image.datatype, &std::pair<int, SampleType>::first);
    if (type == std::end(types)) {
        throw Refusal(std::string("its samples are of the type ") +
                      nifti_datatype_to_string(image.datatype));
    }
    picture.sampleType = type->second;
    const std::int64_t components = image.dim[0] >= 5 ? image.dim[5] : 1;
    if (image.dim[0] >= 4 && image.nvox != image.nx * image.ny * image.nz * components) {
        throw Refusal("it has " + std::to_string(image.dim[0]) + " dimensions, 2 or 3 are needed");
    }
    if (image.datatype == DT_RGB24 || image.datatype == DT_RGBA32) {
        picture.channels = image.datatype == DT_RGB24 ? 3 : 4;
        picture.pixelKind = picture.channels == 3 ? PixelKind::rgb : PixelKind::rgba;
    } else if (components > 1) {
        picture.channels = requireExtent(components);
        picture.pixelKind = PixelKind::vector;
        contents.planar = true;
    }
    const bool isScaled = image.scl_slope != 0 && (image.scl_slope != 1 || image.scl_inter != 0);
    if (isScaled) {
        contents.slope = image.scl_slope;
        contents.shift = image.scl_inter;
    }
    for (const std::int64_t extent : {image.nx, image.ny, image.nz}) {
        picture.axes.push_back({requireExtent(extent)});
    }
}

// Header and extensions in native byte order; a header of the second version as one of the first.
std::string noteOf(const fs::path& file, nifti_image& image) {
    nifti_1_header header{};
    int swapped = 0;
    const bool isFirst =
        image.nifti_type == NIFTI_FTYPE_NIFTI1_1 || image.nifti_type == NIFTI_FTYPE_NIFTI1_2;
    if (isFirst) {
        const std::unique_ptr<nifti_1_header, void (*)(void*)> own(
            nifti_read_n1_hdr(file.c_str(), &swapped, 1), std::free);
        if (!own) throw std::runtime_error("its header makes no sense");
        header = *own;
    } else if (nifti_convert_nim2n1hdr(&image, &header) != 0) {
        return "";
    }
    std::string note(reinterpret_cast<const char*>(&header), sizeof header);
    const bool isExtended = image.num_ext > 0;
    note += {static_cast<char>(isExtended), 0, 0, 0};
    for (int i = 0; i < image.num_ext; ++i) {
        const nifti1_extension& extension = image.ext_list[i];
        note.append(reinterpret_cast<const char*>(&extension.esize), sizeof extension.esize);
        note.append(reinterpret_cast<const char*>(&extension.ecode), sizeof extension.ecode);
        note.append(extension.edata, extension.esize - 8);
    }
    return note;
}

Contents open(const fs::path& file) {
    nifti_set_debug_level(0);
    const bool namesData = fs::path(isPacked(file) ? file.stem() : file).extension() == ".img";
    const fs::path headerFile = namesData ? otherFile(file) : file;
    const Image image(nifti_image_read(headerFile.c_str(), 0), nifti_image_free);
    if (!image) throw std::runtime_error("its header makes no sense");
    if (image->nifti_type == NIFTI_FTYPE_ANALYZE) {
        throw Refusal("an Analyze header, which does not tell where the volume lies");
    }
    Contents contents;
    describeSamples(*image, contents);
    placePicture(*image, contents.picture);
    contents.picture.notes[headerNote] = noteOf(headerFile, *image);
    const bool isApart =
        image->nifti_type != NIFTI_FTYPE_NIFTI1_1 && image->nifti_type != NIFTI_FTYPE_NIFTI2_1;
    if (isApart && !isPair(file)) throw Refusal("its header belongs to a pair of files");
    const fs::path data = isApart ? (namesData ? file : otherFile(file)) : file;
    if (image->iname_offset < 0 || image->iname_offset > (1 << 26)) {
        throw std::runtime_error("its header makes no sense");
    }
    RawSamples raw{data, 0, isPacked(data), static_cast<std::uintmax_t>(image->iname_offset)};
    raw.bytes = image->nvox * image->nbyper;
    if (image->byteorder != nifti_short_order()) raw.swapped = std::max(1, image->swapsize);
    requireWhole(raw);
    contents.read = [raw](std::byte* samples) { readSamples(raw, samples); };
    return contents;
}

int datatypeOf(const Picture& picture) {
    constexpr int types[] = {DT_UINT8, DT_INT8,   DT_UINT16, DT_INT16,   DT_UINT32,
                             DT_INT32, DT_UINT64, DT_INT64,  DT_FLOAT32, DT_FLOAT64};
    if (picture.pixelKind == PixelKind::rgb) return DT_RGB24;
    if (picture.pixelKind == PixelKind::rgba) return DT_RGBA32;
    return types[static_cast<int>(picture.sampleType)];
}

void requireHeld(const Picture& picture) {
    refuseGreyOpacity(picture, "NIfTI");
    const bool inColour =
        picture.pixelKind == PixelKind::rgb || picture.pixelKind == PixelKind::rgba;
    if (inColour && picture.sampleType != SampleType::uint8) {
        throw Refusal("NIfTI holds colours of 8 bits only");
    }
    for (const Axis& axis : picture.axes) {
        if (axis.extent > longest) throw Refusal("NIfTI holds axes of at most 32767 samples");
    }
    if (picture.channels > longest) throw Refusal("NIfTI holds at most 32767 channels");
    if (!picture.origin.empty() && picture.origin.size() != 3) {
        throw Refusal("NIfTI holds no place in a plane; NRRD and MetaImage do");
    }
}

// Whether the header says of the place what the picture says.
bool tellsThePlaceOf(const Picture& picture, const nifti_1_header& header) {
    if (header.datatype == 0) return false;
    const Image image(nifti_convert_n1hdr2nim(header, "header"), nifti_image_free);
    if (!image) return false;
    Picture told;
    told.axes.resize(3);
    placePicture(*image, told);
    bool same = picture.axes.size() == 3 && told.origin == picture.origin;
    for (std::size_t a = 0; same && a < 3; ++a) {
        same = image->dim[a + 1] == picture.axes[a].extent &&
               told.axes[a].spacing == picture.axes[a].spacing &&
               told.axes[a].direction == picture.axes[a].direction;
    }
    return same;
}

void placeHeader(const Picture& picture, nifti_1_header& header) {
    for (std::size_t a = 0; a < picture.axes.size(); ++a) {
        header.pixdim[a + 1] = static_cast<float>(picture.axes[a].spacing);
    }
    header.xyzt_units = NIFTI_UNITS_MM;
    const bool isPlaced = !picture.origin.empty();
    header.sform_code = isPlaced ? std::max<short>(header.sform_code, NIFTI_XFORM_SCANNER_ANAT) : 0;
    header.qform_code = 0;
    if (!isPlaced) return;
    constexpr double signs[] = {-1, -1, 1};
    float* const rows[] = {header.srow_x, header.srow_y, header.srow_z};
    nifti_dmat44 matrix{};
    matrix.m[3][3] = 1;
    for (int i = 0; i < 3; ++i) {
        for (int a = 0; a < 3; ++a) {
            const Axis axis = a < static_cast<int>(picture.axes.size()) ? picture.axes[a] : Axis{};
            matrix.m[i][a] = signs[i] * axis.direction[i] * axis.spacing;
        }
        matrix.m[i][3] = signs[i] * picture.origin[i];
        for (int a = 0; a < 4; ++a) rows[i][a] = static_cast<float>(matrix.m[i][a]);
    }
    // The other matrix holds turned axes only, at right angles.
    double b = 0, c = 0, d = 0, x = 0, y = 0, z = 0, dx = 0, dy = 0, dz = 0, sign = 0;
    nifti_dmat44_to_quatern(matrix, &b, &c, &d, &x, &y, &z, &dx, &dy, &dz, &sign);
    const nifti_dmat44 turned = nifti_quatern_to_dmat44(b, c, d, x, y, z, dx, dy, dz, sign);
    for (int i = 0; i < 3; ++i) {
        for (int a = 0; a < 3; ++a) {
            if (std::abs(turned.m[i][a] - matrix.m[i][a]) > 1e-6 * (dx + dy + dz)) return;
        }
    }
    header.qform_code = header.sform_code;
    header.pixdim[0] = static_cast<float>(sign);
    header.quatern_b = static_cast<float>(b);
    header.quatern_c = static_cast<float>(c);
    header.quatern_d = static_cast<float>(d);
    header.qoffset_x = static_cast<float>(x);
    header.qoffset_y = static_cast<float>(y);
    header.qoffset_z = static_cast<float>(z);
}

nifti_1_header headerFor(const Picture& picture, const std::string& note) {
    nifti_1_header header{};
    if (note.size() >= sizeof header) {
        std::memcpy(&header, note.data(), sizeof header);
    } else {
        header.sizeof_hdr = sizeof header;
        header.regular = 'r';
        std::fill(std::begin(header.pixdim), std::end(header.pixdim), 1.0F);
    }
    if (!tellsThePlaceOf(picture, header)) {
        std::fill(std::begin(header.dim), std::end(header.dim), 1);
        header.dim[0] = static_cast<short>(picture.axes.size());
        for (std::size_t a = 0; a < picture.axes.size(); ++a) {
            header.dim[a + 1] = static_cast<short>(picture.axes[a].extent);
        }
        placeHeader(picture, header);
    }
    if (picture.pixelKind == PixelKind::vector) {
        header.dim[0] = 5;
        header.dim[5] = static_cast<short>(picture.channels);
        if (header.intent_code == 0) header.intent_code = NIFTI_INTENT_VECTOR;
    }
    header.datatype = static_cast<short>(datatypeOf(picture));
    int bytes = 0, unused = 0;
    nifti_datatype_sizes(header.datatype, &bytes, &unused);
    header.bitpix = static_cast<short>(8 * bytes);
    header.scl_slope = 1;
    header.scl_inter = 0;
    return header;
}

void write(const fs::path& file, const Picture& picture) {
    const auto kept = picture.notes.find(headerNote);
    const std::string note = kept == picture.notes.end() ? "" : kept->second;
    nifti_1_header header = headerFor(picture, note);
    std::string behind = note.substr(std::min(note.size(), sizeof header));
    if (behind.empty()) behind.assign(4, '\0');
    const bool apart = isPair(file);
    std::memcpy(header.magic, apart ? "ni1" : "n+1", 4);
    const std::size_t before = sizeof header + behind.size();
    behind.resize((before + 15) / 16 * 16 - sizeof header);
    header.vox_offset = apart ? 0 : static_cast<float>(sizeof header + behind.size());

    const bool namesData = fs::path(isPacked(file) ? file.stem() : file).extension() == ".img";
    const std::string samples = samplesOf(picture, picture.pixelKind == PixelKind::vector);
    Sink sink(namesData ? otherFile(file) : file);
    sink.write({reinterpret_cast<const char*>(&header), sizeof header});
    sink.write(behind);
    if (apart) {
        Sink data(namesData ? file : otherFile(file));
        data.write(samples);
        data.close();
    } else {
        sink.write(samples);
    }
    sink.close();
}

bool recognises(std::string_view head) {
    if (head.size() < sizeof(nifti_1_header)) return false;
    std::int32_t size = 0;
    std::memcpy(&size, head.data(), sizeof size);
    const auto is = [&](std::uint32_t wanted) {
        return static_cast<std::uint32_t>(size) == wanted ||
               static_cast<std::uint32_t>(size) == __builtin_bswap32(wanted);
    };
    return is(sizeof(nifti_1_header)) || is(sizeof(nifti_2_header));
}

const KnownFormat nifti({.name = "NIfTI",
                         .suffixes = {".nii.gz", ".nii", ".hdr", ".img", ".hdr.gz", ".img.gz"},
                         .recognises = recognises,
                         .open = open,
                         .companions = companionsOf,
                         .requireHeld = requireHeld,
                         .write = write,
                         .writtenBeside = companionsOf});

}  // namespace

}  // namespace diffuse
