// SPDX-License-Identifier: MIT
// What `diffuse` spends on gzip, and nothing else: unpacks a file on one thread, packs it in
// pieces on two, and writes it.
#include <libdeflate.h>

#include <cstdint>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

int main(int argc, char** argv) {
    if (argc != 3) return 2;
    std::ifstream input(argv[1], std::ios::binary);
    const std::string packed(std::istreambuf_iterator<char>(input), {});
    std::uint32_t length = 0;
    std::memcpy(&length, packed.data() + packed.size() - sizeof length, sizeof length);
    std::string plain(length, '\0');
    auto* const unpack = libdeflate_alloc_decompressor();
    std::size_t given = 0;
    if (libdeflate_gzip_decompress(unpack, packed.data(), packed.size(), plain.data(), length,
                                   &given) != LIBDEFLATE_SUCCESS) {
        return 1;
    }
    constexpr std::size_t size = 1 << 20;
    std::vector<std::string> pieces((plain.size() + size - 1) / size);
    const auto work = [&](std::size_t first) {
        auto* const pack = libdeflate_alloc_compressor(6);
        for (std::size_t i = first; i < pieces.size(); i += 2) {
            const std::size_t bytes = std::min(size, plain.size() - i * size);
            pieces[i].resize(libdeflate_gzip_compress_bound(pack, bytes));
            pieces[i].resize(libdeflate_gzip_compress(pack, &plain[i * size], bytes,
                                                      pieces[i].data(), pieces[i].size()));
        }
    };
    std::thread other(work, 1);
    work(0);
    other.join();
    std::ofstream output(argv[2], std::ios::binary);
    for (const std::string& piece : pieces) output << piece;
    return output ? 0 : 1;
}
