// SPDX-License-Identifier: MIT
#include "manual.h"

#include <sstream>

namespace diffuse {

std::string introduction() {
    return R"(diffuse - smooth the noise of a picture or a volume and keep its edges

Repeats the step of libdiffusefilt_halide, anisotropic diffusion as of Perona
and Malik (1990): differences of neighbours well below a threshold are smoothed,
those well above it kept. Colours are filtered channel by channel. The result has
the sample type of the input and its spacing, origin and directions.

Formats: PNG, TIFF, JPEG, NIfTI, NRRD, MetaImage; BMP and DICOM are read only.
What a format cannot keep is refused in one line. Pictures have two dimensions,
volumes three; one slice in a file of volumes is a picture.
)";
}

std::string closing() {
    return R"(Examples:
  diffuse photo.png -o smooth.png
        Three steps, with the threshold that suits the noise of the picture.
  diffuse head.nii.gz -k 20 -n 4 --conduction exponential -o smooth.nii.gz
  diffuse series/ -o head.nrrd --preview before-after.png
        Stacks the slices of a DICOM series and shows what was done.
  diffuse head.nii.gz --slice z:90 --json
        Tells of a slice which threshold suits it and how long the steps take.
  diffuse noisy/01.png --report choice.html
        Shows in a browser what was done, and what other thresholds would do.
  diffuse noisy/*.png --output-dir filtered -k 25 --keep-going

While a work of more than a second goes on, standard error tells how far it is.
A file is written whole or not at all, also when the disk is full or the program
is interrupted.

Exit status: 0; 1 if the work failed; 2 if the command line is wrong.)";
}

std::string ManualFormatter::make_option_opts(const CLI::Option* option) const {
    return option->get_type_size() == 0 ? "" : " " + option->get_type_name();
}

std::string ManualFormatter::make_option_desc(const CLI::Option* option) const {
    std::istringstream words(option->get_description());
    std::string text;
    std::size_t column = nameColumn;
    for (std::string word; words >> word; column += word.size() + 1) {
        if (column + word.size() > width) {
            text += "\n";
            column = nameColumn;
        } else if (!text.empty()) {
            text += " ";
        }
        text += word;
    }
    return text;
}

}  // namespace diffuse
