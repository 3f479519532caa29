#include "manual.h"

#include <iterator>
#include <map>
#include <sstream>
#include <stdexcept>

namespace diffuse {

std::string introduction() {
    return R"(diffuse - smooth the noise of a picture or a volume and keep its edges

Repeats the step of libdiffusefilt_halide, anisotropic diffusion as of Perona
and Malik (1990): differences of neighbours well below a threshold are smoothed,
those well above it kept. Colours are filtered channel by channel. The result has
the sample type of the input and its spacing, origin and directions.

Formats: PNG, TIFF, JPEG, BMP, NIfTI, NRRD, MetaImage; DICOM is read only. What
a format cannot keep is refused in one line. Pictures have two dimensions,
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

While a work of more than a second goes on, standard error tells how far it is.
A file is written whole or not at all, also when the disk is full or the program
is interrupted.

Exit status: 0; 1 if the work failed; 2 if the command line is wrong.)";
}

std::string helpOn(const std::string& names) {
    static const std::map<std::string, std::string> texts = {
        {"input", "Picture or volume, or a folder that holds one DICOM series"},
        {"-h,--help", "Print this and exit"},
        {"-o,--output", "Write the result here, in the format of the name's extension"},
        {"--preview",
         "Write a picture in 8 bits to look at: the input and the result, with --add-noise the "
         "noisy one between them, side by side; of a volume, one above the other, its central "
         "axial, coronal and sagittal slices"},
        {"--slice",
         "Filter one slice of a volume as a picture; AXIS is x, y or z, as the samples stand in "
         "the file, and INDEX counts from 0: z:90"},
        {"--nan",
         "What to do with samples that are infinite or no numbers: refuse the input (default), or "
         "let them spread to their neighbours with every step"},
        {"-n,--iterations", "Number of steps (default 3)"},
        {"-k,--threshold",
         "Gradient threshold K in the units of the samples. auto, the default, takes a multiple "
         "of the standard deviation of the noise, estimated from the input, that falls with the "
         "number of steps"},
        {"--connectivity",
         "minimal: the neighbours that share a side, 4 or 6 (default); maximal: those that share "
         "a corner too, 8 or 26"},
        {"--conduction",
         "Conductance of a difference d. quadratic: 1 / (1 + (d / K)^2) (default); exponential: "
         "exp(-(d / K)^2), which keeps edges more strictly"},
        {"--type", "Arithmetic: float64 (default), or float32, which is faster"},
        {"--instruction-set",
         "Of the processor: none (any x86-64), avx, avx2 (with FMA3 and BMI1), or auto, the best "
         "that it can run (default). Results differ between them by rounding"},
        {"--threads",
         "Number of threads (default: all that the processor runs). It changes no result"},
        {"--json",
         "Print a report in JSON: pipeline, threshold, noise, times in seconds, and how far each "
         "step moved the values"},
        {"--add-noise",
         "Add Gaussian noise of this standard deviation before filtering, and report the PSNR "
         "before and after"},
        {"--seed", "Seed of this noise (default 1)"}};
    return texts.at(names);
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
