// SPDX-License-Identifier: MIT
// NIfTI in one file, packed by gzip or not, by nifti_clib. The whole header goes along from file to
// file, so that both of its matrices stay with their codes.
#include <nifti2_io.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "rawData.h"

namespace diffuse {

namespace {

namespace fs = std::filesystem;

constexpr char note[] = "nifti";  // the key of the header

using Image = std::unique_ptr<nifti_image, void (*)(nifti_image*)>;

// Colours have types of their own.
constexpr short types[] = {DT_UINT8,  DT_INT8,  DT_UINT16,  DT_INT16,   DT_UINT32, DT_INT32,
                           DT_UINT64, DT_INT64, DT_FLOAT32, DT_FLOAT64, DT_RGB24,  DT_RGBA32};

void describeSamples(const nifti_image& image, Contents& contents) {
    Picture& picture = contents.picture;
    const auto* type = std::ranges::find(types, image.datatype);
    if (type == std::end(types)) {
        throw Refusal(std::string("its samples are of the type ") +
                      nifti_datatype_to_string(image.datatype));
    }
    const std::int64_t count = std::max<std::int64_t>(image.nt, 1);
    if (image.nvox != image.nx * image.ny * image.nz * count) {
        throw Refusal(std::to_string(image.dim[0]) + " dimensions, 2 to 4 are needed");
    }
    picture.count = requireExtent(count);
    picture.sampleType = static_cast<SampleType>(type - types);
    if (image.datatype == DT_RGB24 || image.datatype == DT_RGBA32) {
        picture.sampleType = SampleType::uint8;
        picture.channels = image.nbyper;
        picture.pixelKind = picture.channels == 3 ? PixelKind::rgb : PixelKind::rgba;
    }
    if (image.scl_slope != 0) {
        contents.slope = image.scl_slope;
        contents.shift = image.scl_inter;
    }
}

// NIfTI counts to the right and to the front, pictures the other way. The matrix of the affine
// transform goes before that of the scanner. Without either the place is unknown.
void placePicture(const nifti_image& image, Picture& picture) {
    if (image.xyz_units != NIFTI_UNITS_MM && image.xyz_units != NIFTI_UNITS_UNKNOWN) {
        throw Refusal("its lengths are not in mm");
    }
    const bool isPlaced = image.sform_code > 0 || image.qform_code > 0;
    const auto& matrix = (image.sform_code > 0 ? image.sto_xyz : image.qto_xyz).m;
    constexpr double signs[] = {-1, -1, 1};
    const std::int64_t extents[] = {image.nx, image.ny, image.nz};
    const double spacings[] = {image.dx, image.dy, image.dz};
    for (int a = 0; a < 3; ++a) {
        Axis axis{requireExtent(extents[a]), spacings[a] == 0 && extents[a] == 1 ? 1 : spacings[a]};
        if (isPlaced) {
            axis.spacing = std::hypot(matrix[0][a], matrix[1][a], matrix[2][a]);
            for (int i = 0; i < 3; ++i) {
                axis.direction.push_back(matrix[i][a] * signs[i] / axis.spacing);
            }
            picture.origin.push_back(matrix[a][3] * signs[a]);
        }
        picture.axes.push_back(axis);
    }
}

// The header in this machine's byte order, one of the second version as one of the first.
std::string noteOf(const fs::path& file, const nifti_image& image) {
    nifti_1_header header{};
    int swapped = 0;
    if (image.nifti_type == NIFTI_FTYPE_NIFTI1_1) {
        const std::unique_ptr<nifti_1_header, void (*)(void*)> own(
            nifti_read_n1_hdr(file.c_str(), &swapped, 1), std::free);
        if (own && std::strcmp(own->magic, "n+1") == 0) header = *own;
    } else {
        nifti_convert_nim2n1hdr(&image, &header);
    }
    if (header.sizeof_hdr != sizeof header) throw std::runtime_error("its header makes no sense");
    return {reinterpret_cast<const char*>(&header), sizeof header};
}

Contents open(const fs::path& file) {
    nifti_set_debug_level(0);
    const Image image(nifti_image_read(file.c_str(), 0), nifti_image_free);
    if (!image || image->iname_offset < 0 || image->iname_offset > 1 << 26) {
        throw std::runtime_error("its header makes no sense");
    }
    if (image->nifti_type != NIFTI_FTYPE_NIFTI1_1 && image->nifti_type != NIFTI_FTYPE_NIFTI2_1) {
        throw Refusal("a header without its samples, or of Analyze; NIfTI is read in one file");
    }
    if (image->num_ext > 0) throw Refusal("its header has extensions, which would be lost");
    Contents contents;
    describeSamples(*image, contents);
    placePicture(*image, contents.picture);
    contents.picture.notes[note] = noteOf(file, *image);
    contents.read =
        withSamples(contents.picture, {.file = file,
                                       .isPacked = nifti_is_gzfile(file.c_str()) != 0,
                                       .skipped = static_cast<std::uintmax_t>(image->iname_offset),
                                       .isSwapped = image->byteorder != nifti_short_order()})
            .read;
    return contents;
}

// The matrix of the affine transform with the code of the header before; the other one, which holds
// turned axes at right angles alone, is left out.
void placeHeader(const Picture& picture, nifti_1_header& header) {
    constexpr double signs[] = {-1, -1, 1};
    float* const rows[] = {header.srow_x, header.srow_y, header.srow_z};
    std::fill(std::begin(header.dim), std::end(header.dim), 1);
    header.dim[0] = static_cast<short>(picture.axes.size());
    header.xyzt_units = static_cast<char>(NIFTI_UNITS_MM | XYZT_TO_TIME(header.xyzt_units));
    if (picture.count > 1) {
        header.dim[0] = 4;
        header.dim[4] = static_cast<short>(picture.count);
    }
    header.qform_code = 0;
    if (picture.origin.empty()) header.sform_code = 0;
    if (!picture.origin.empty() && header.sform_code == 0) header.sform_code = 1;
    for (std::size_t a = 0; a < picture.axes.size(); ++a) {
        const Axis& axis = picture.axes[a];
        header.dim[a + 1] = static_cast<short>(axis.extent);
        header.pixdim[a + 1] = static_cast<float>(axis.spacing);
        for (std::size_t i = 0; i < axis.direction.size(); ++i) {
            rows[i][a] = static_cast<float>(signs[i] * axis.direction[i] * axis.spacing);
            rows[i][3] = static_cast<float>(signs[i] * picture.origin[i]);
        }
    }
}

// A kept header tells the place of a picture of its size; a slice has another one.
nifti_1_header headerFor(const Picture& picture) {
    nifti_1_header header{};
    std::fill(std::begin(header.pixdim), std::end(header.pixdim), 1.0F);
    bool isPlaced = false;
    if (const auto kept = picture.notes.find(note); kept != picture.notes.end()) {
        std::memcpy(&header, kept->second.data(), sizeof header);
        isPlaced = std::max<int>(header.dim[4], 1) == picture.count &&
                   std::equal(picture.axes.begin(), picture.axes.end(), std::begin(header.dim) + 1,
                              [](const Axis& axis, short extent) {
                                  return axis.extent == std::max<int>(extent, 1);
                              });
    }
    if (!isPlaced) placeHeader(picture, header);
    const bool isColour = inColour(picture.pixelKind);
    header.sizeof_hdr = sizeof header;
    header.datatype = types[isColour ? 7 + picture.channels : static_cast<int>(picture.sampleType)];
    header.bitpix =
        static_cast<short>(8 * sizeOf(picture.sampleType) * (isColour ? picture.channels : 1));
    header.scl_slope = 1;
    header.scl_inter = 0;
    header.vox_offset = sizeof header + 4;
    std::memcpy(header.magic, "n+1", 4);
    return header;
}

template <bool packs>
void write(const std::string& file, const Picture& picture) {
    const auto isTooLong = [](const Axis& axis) { return axis.extent > 32767; };
    const bool isColour = inColour(picture.pixelKind);
    const std::pair<bool, const char*> lost[] = {
        {isColour && picture.sampleType != SampleType::uint8, "colours of more than 8 bits"},
        {std::ranges::any_of(picture.axes, isTooLong) || isTooLong({picture.count}),
         "axes of more than 32767 samples"},
        {picture.origin.size() == 2, "a place in a plane"}};
    for (const auto& [isLost, what] : lost) {
        if (isLost) throw Refusal(std::string("NIfTI holds no ") + what);
    }
    const nifti_1_header header = headerFor(picture);
    std::string bytes(reinterpret_cast<const char*>(&header), sizeof header);
    bytes.append(4, '\0');
    writeWithHeader(file, bytes, picture, packs);
}

bool recognises(std::string_view head) {
    nifti_set_debug_level(0);
    return head.size() >= sizeof(nifti_1_header) &&
           nifti_header_version(head.data(), head.size()) > 0;
}

// Of what gzip packs, only this format is read.
bool isPacked(std::string_view head) {
    return head.starts_with("\x1f\x8b");
}

const std::vector<PixelKind> kinds = {PixelKind::grey, PixelKind::rgb, PixelKind::rgba};
const KnownFormat plain(
    {"NIfTI", {".nii"}, recognises, open, write<false>, kinds, allTypes, true, false, false, true});
const KnownFormat packed(
    {"NIfTI", {".nii.gz"}, isPacked, open, write<true>, kinds, allTypes, true, false, false, true});

}  // namespace

}  // namespace diffuse
