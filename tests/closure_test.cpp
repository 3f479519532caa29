// The closure records, as the host of a replaced parallel loop sees them: every field in
// its place with its value.
#include <gtest/gtest.h>

#include <map>
#include <sstream>

#include "support/CapturedLoop.h"

namespace {

using namespace support;

// The names of a record's fields in their order. An int64 or a pointer is marked "+", a field
// of the records of one element type alone "float32:" or "float64:"; the threshold and
// sqrtThree have their own width, everything else is an int32.
const std::map<std::string, std::string> layouts = {
    {"2_minimal",
     "outMin0 interiorRowEnd interiorRowBegin outStride1 float64:gradTIn inputExtent1 inputStride1 "
     "interiorVectorEnd +inputOffset float32:gradTIn +outputOffset inputMax0 lastVectorX "
     "vectorCount leftVectorCount"},
    {"2_maximal",
     "outMin0 unclampedRowEnd outStride1 float64:gradTIn inputExtent1 inputStride1 unclampedSpan "
     "+inputOffset float32:gradTIn +outputOffset vectorCount lastVectorX inputMax0"},
    {"3_minimal",
     "outExtent1 outMin0 outMin1 interiorPlaneEnd interiorPlaneBegin outStride1 outStride2 "
     "float64:gradTIn inputExtent1 inputExtent2 inputStride1 inputStride2 interiorRowEnd "
     "+inputOffset float32:gradTIn +outputOffset interiorVectorEnd outEnd1 inputMax0 inputMax1 "
     "lastVectorX vectorCount interiorRowBegin leftVectorCount"},
    {"3_maximal",
     "outExtent1 outMin0 outMin1 unclampedPlaneEnd outStride1 outStride2 float64:gradTIn "
     "inputExtent1 inputExtent2 inputStride1 inputStride2 unclampedRowEnd unclampedSpan "
     "float64:sqrtThree +inputOffset float32:gradTIn +outputOffset vectorCount lastVectorX "
     "inputMax0 outEnd1 inputMax1"},
};

// The input is 61 x 29 (x 13) from (-5, -3, 0) on, the output 41 x 17 (x 9) from (3, 2, 0) on.
// The offsets are products of 64 bits. What does not depend on the number of lanes:
const std::map<std::string, int64_t> valuesOfEveryRecord = {{"outMin0", 3},
                                                            {"outMin1", 2},
                                                            {"outExtent1", 17},
                                                            {"outEnd1", 19},
                                                            {"outStride1", -2000000000},
                                                            {"outStride2", -900},
                                                            {"inputExtent1", 29},
                                                            {"inputExtent2", 13},
                                                            {"inputStride1", 2000000000},
                                                            {"inputStride2", 2100},
                                                            {"inputMax0", 60},
                                                            {"inputMax1", 28},
                                                            {"inputOffset", -6000000005},
                                                            {"outputOffset", -3999999997},
                                                            {"interiorRowBegin", 2},
                                                            {"interiorRowEnd", 19},
                                                            {"unclampedRowEnd", 19},
                                                            {"interiorPlaneBegin", 1},
                                                            {"interiorPlaneEnd", 9},
                                                            {"unclampedPlaneEnd", 9},
                                                            {"leftVectorCount", 0}};
const std::map<int, std::map<std::string, int64_t>> valuesOfLanes = {
    {2,
     {{"lastVectorX", 42}, {"vectorCount", 21}, {"interiorVectorEnd", 20}, {"unclampedSpan", 39}}},
    {4,
     {{"lastVectorX", 40}, {"vectorCount", 11}, {"interiorVectorEnd", 10}, {"unclampedSpan", 37}}},
    {8,
     {{"lastVectorX", 36}, {"vectorCount", 6}, {"interiorVectorEnd", 5}, {"unclampedSpan", 33}}}};

// Reads a record member by member, as a compiler lays them out.
class RecordReader {
public:
    explicit RecordReader(const std::vector<uint8_t>& bytes) : bytes_(bytes) {}

    template <class T>
    T next() {
        at_ = (at_ + alignof(T) - 1) / alignof(T) * alignof(T);
        T value;
        std::memcpy(&value, bytes_.data() + at_, sizeof(T));
        at_ += sizeof(T);
        return value;
    }

private:
    const std::vector<uint8_t>& bytes_;
    size_t at_ = 0;
};

class ClosureRecord : public PipelineTest {
protected:
    // The fields of the pipeline's record.
    std::vector<std::string> layout() const {
        const std::string shape = planar() ? "2_" : "3_";
        const std::string ofElements = narrow() ? "float32:" : "float64:";
        std::istringstream names(layouts.at(shape + (minimal() ? "minimal" : "maximal")));
        std::vector<std::string> fields;
        for (std::string name; names >> name;) {
            if (name.starts_with(ofElements)) name.erase(0, ofElements.size());
            if (!name.starts_with("float")) fields.push_back(name);
        }
        return fields;
    }

    int64_t valueOf(const std::string& name) const {
        const auto& ofLanes = valuesOfLanes.at(GetParam().variant.lanes());
        const auto found = ofLanes.find(name);
        return found != ofLanes.end() ? found->second : valuesOfEveryRecord.at(name);
    }
};

TEST_P(ClosureRecord, HoldsEveryFieldInItsPlace) {
    CapturedLoop loop(GetParam(), {{-5, 61, 1}, {-3, 29, 2000000000}, {0, 13, 2100}},
                      {{3, 41, 1}, {2, 17, -2000000000}, {0, 9, -900}}, 0.1);
    RecordReader record(loop.record);
    for (const std::string& field : layout()) {
        SCOPED_TRACE(field);
        if (field == "gradTIn") {
            EXPECT_EQ(narrow() ? record.next<float>() : record.next<double>(),
                      narrow() ? 0.1f : 0.1);
        } else if (field == "sqrtThree") {
            EXPECT_EQ(record.next<uint64_t>(), 0x3ffbb67ae8584caaU);
        } else if (field[0] == '+') {
            EXPECT_EQ(record.next<int64_t>(), valueOf(field.substr(1)));
        } else {
            EXPECT_EQ(record.next<int32_t>(), valueOf(field));
        }
    }
    EXPECT_EQ(record.next<void*>(), loop.outputHost());
    EXPECT_EQ(record.next<void*>(), loop.outputBuffer());
    EXPECT_EQ(record.next<void*>(), loop.inputHost());
    EXPECT_EQ(record.next<void*>(), loop.inputBuffer());
    EXPECT_EQ(loop.userContext, nullptr);
    EXPECT_EQ(loop.first, planar() ? 2 : 0);
    EXPECT_EQ(loop.count, planar() ? 17 : 9);
}

// The path changes over at an input one element wider than a vector, whatever else.
TEST_P(ClosureRecord, WideInputsRunTheLoop) {
    const int L = GetParam().variant.lanes();
    for (const int width : {1, L - 1, L, L + 1, L + 2}) {
        CapturedLoop loop(GetParam(), {{0, width, 1}, {0, 1, 67}, {0, 2, 2100}},
                          {{-1, L, 1}, {0, 1, 43}, {0, 2, 1000}}, 1);
        EXPECT_EQ(loop.ran, width > L) << width;
        EXPECT_EQ(loop.status, width > L ? CapturedLoop::loopStatus : 0);
    }
}

INSTANTIATE_TEST_SUITE_P(Pipelines, ClosureRecord, testing::ValuesIn(pipelines()), nameOf);

}  // namespace
