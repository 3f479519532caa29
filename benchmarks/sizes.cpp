// What a call costs by the shape of its picture: sizes REGEX SECONDS. Writes, for each pipeline
// that matches, one line of JSON for each group of shapes, after about SECONDS of it. Figures
// are nanoseconds for one element on one thread, where nothing else is said.
#include <HalideRuntime.h>

#include <deque>
#include <regex>

#include "Picture.h"
#include "measure.h"
#include "peers.h"
#include "support/Pipelines.h"

namespace {

using support::Pipeline;

std::string words(const Extents& extents) {
    std::string text;
    for (const int32_t extent : extents) {
        text += (text.empty() ? "" : " x ") + std::to_string(extent);
    }
    return text;
}

// The contenders of a group, with their pictures.
class Group {
public:
    Group(const Pipeline& pipeline, const char* name) : pipeline_(pipeline), name_(name) {}

    bool is3D() const { return pipeline_.variant.dimensions == 3; }

    Picture& picture(const Extents& extents, int32_t padding = 0) {
        return pictures_.emplace_back(pipeline_.variant.elementType, extents, padding);
    }
    void add(const std::string& name, double work, std::function<void()> call, int threads = 1) {
        contenders_.push_back({name, work, std::move(call), threads});
    }
    void addPipeline(const std::string& name, Picture& picture) {
        add(name, double(picture.elements()), callOn(picture));
    }
    std::function<void()> callOn(Picture& picture) const {
        return [in = picture.input(), out = picture.output(), step = pipeline_.entry]() mutable {
            step(&in, threshold, &out);
        };
    }
    void time(double seconds) const {
        printLine(pipeline_.name, name_, measure(contenders_, {seconds, 5, 31}));
    }

private:
    const Pipeline& pipeline_;
    const char* name_;
    std::deque<Picture> pictures_;  // which stay in place
    std::vector<Contender> contenders_;
};

void timeSizes(const Pipeline& pipeline, double seconds) {
    Group group(pipeline, "size");
    if (group.is3D()) {
        for (const int32_t n : {16, 32, 64, 128}) {
            group.addPipeline(words({n, n, n}), group.picture({n, n, n}));
        }
        group.addPipeline(words({256, 256, 128}), group.picture({256, 256, 128}));
        group.addPipeline(words({512, 512, 128}), group.picture({512, 512, 128}));
    } else {
        for (const int32_t n : {16, 64, 256, 1024, 2048, 4096, 8192}) {
            group.addPipeline(words({n, n}), group.picture({n, n}));
        }
    }
    group.time(seconds);
}

// Strides that are powers of two, and longer by one cache line (float32) or two (float64).
void timeStrides(const Pipeline& pipeline, double seconds) {
    Group group(pipeline, "stride");
    const std::vector<Extents> shapes =
        group.is3D() ? std::vector<Extents>{{256, 256, 64}, {1024, 64, 64}}
                     : std::vector<Extents>{{1024, 1024}, {2048, 512}, {8192, 128}};
    for (const Extents& extents : shapes) {
        group.addPipeline(words(extents), group.picture(extents));
        group.addPipeline(words(extents) + " padded", group.picture(extents, 16));
    }
    group.time(seconds);
}

// Nanoseconds for one call on 64 x 64, or 64 x 64 x 8, on the library's back end and on the
// pool of threads that Halide's runtime brings.
void timePool(const Pipeline& pipeline, double seconds) {
    Group group(pipeline, "pool");
    const auto call =
        group.callOn(group.picture(group.is3D() ? Extents{64, 64, 8} : Extents{64, 64}));
    group.add("TBB, one thread", 1, call);
    group.add("TBB, two threads", 1, call, 2);
    halide_set_num_threads(2);
    group.add("runtime's pool, two threads", 1, [call] {
        const auto library = halide_set_custom_do_par_for(halide_default_do_par_for);
        call();
        halide_set_custom_do_par_for(library);
    });
    group.time(seconds);
    halide_shutdown_thread_pool();
}

// Rows and planes in which every vector is clamped, and rows of so few vectors that the first
// and the last of them, which are clamped too, are all or half. The library's loop over as many
// rows of nothing tells what of such short tasks is not the filter's.
void timeClamps(const Pipeline& pipeline, double seconds) {
    Group group(pipeline, "clamp");
    const int32_t lanes = pipeline.variant.lanes();
    constexpr int32_t rows = 4096;
    if (group.is3D()) {
        group.addPipeline("interior", group.picture({512, 128, 64}));
        group.addPipeline("one plane", group.picture({4096, 64, 1}));
        group.addPipeline("two planes", group.picture({4096, 32, 2}));
        group.addPipeline("one row a plane", group.picture({4096, 1, 64}));
    } else {
        group.addPipeline("interior", group.picture({4096, 256}));
        group.addPipeline("one row", group.picture({65536, 1}));
        group.addPipeline("two rows", group.picture({65536, 2}));
    }
    for (const int32_t vectors : {2, 3, 4}) {
        const int32_t width = vectors * lanes;
        group.addPipeline(
            std::to_string(vectors) + " vectors",
            group.picture(group.is3D() ? Extents{width, rows / 64, 64} : Extents{width, rows}));
    }
    const int tasks = group.is3D() ? 64 : rows;
    group.add("empty tasks for one row", rows, [tasks] {
        halide_do_par_for(
            nullptr, [](void*, int, uint8_t*) { return 0; }, 0, tasks, nullptr);
    });
    group.time(seconds);
}

// Pictures no wider than a vector.
void timeInLine(const Pipeline& pipeline, double seconds) {
    Group group(pipeline, "in line");
    const int32_t width = pipeline.variant.lanes();
    Picture& picture = group.picture(group.is3D() ? Extents{width, 64, 64} : Extents{width, 4096});
    group.addPipeline("pipeline", picture);
    group.add("scalar", double(picture.elements()),
              [in = picture.input(), out = picture.output(), variant = pipeline.variant] {
                  peers::scalarLoop(variant, in, threshold, out);
              });
    group.time(seconds);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: sizes REGEX SECONDS\n");
        return 2;
    }
    const std::regex wanted(argv[1]);
    const double seconds = std::atof(argv[2]);
    for (const Pipeline& pipeline : support::pipelines()) {
        if (!support::processorRuns(pipeline.variant.instructionSet) ||
            !std::regex_search(pipeline.name, wanted)) {
            continue;
        }
        for (const auto time : {timeSizes, timeStrides, timePool, timeClamps, timeInLine}) {
            time(pipeline, seconds);
        }
    }
    return 0;
}
