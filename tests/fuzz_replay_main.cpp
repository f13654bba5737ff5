// Replays every file of the corpus directories given through a fuzz
// target's entry point, so that builds without libFuzzer keep the inputs
// that once found a fault as regression tests.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

int main(int argc, char **argv) {
    int replayed = 0;
    for (int i = 1; i < argc; i++) {
        std::error_code missing;
        for (const auto &entry : std::filesystem::directory_iterator(argv[i], missing)) {
            std::ifstream in(entry.path(), std::ios::binary);
            const std::vector<uint8_t> data{std::istreambuf_iterator<char>(in), {}};
            LLVMFuzzerTestOneInput(data.data(), data.size());
            replayed++;
        }
        if (missing) {
            fprintf(stderr, "no corpus at %s\n", argv[i]);
            return 1;
        }
    }
    printf("replayed %d inputs\n", replayed);
    return replayed > 0 ? 0 : 1;
}
