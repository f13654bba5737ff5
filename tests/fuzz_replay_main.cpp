// Replays every file of the corpus directories given through a fuzz
// target's entry point, so that builds without libFuzzer keep the inputs
// that once found a fault as regression tests.
#include <dirent.h>

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

int main(int argc, char **argv) {
    int replayed = 0;
    for (int i = 1; i < argc; i++) {
        DIR *dir = opendir(argv[i]);
        if (!dir) {
            fprintf(stderr, "no corpus at %s\n", argv[i]);
            return 1;
        }
        while (dirent *e = readdir(dir)) {
            if (e->d_name[0] == '.')
                continue;
            std::string path = std::string(argv[i]) + "/" + e->d_name;
            FILE *f = fopen(path.c_str(), "rb");
            if (!f)
                continue;
            std::vector<uint8_t> data;
            int c;
            while ((c = fgetc(f)) != EOF)
                data.push_back(uint8_t(c));
            fclose(f);
            LLVMFuzzerTestOneInput(data.data(), data.size());
            replayed++;
        }
        closedir(dir);
    }
    printf("replayed %d inputs\n", replayed);
    return replayed > 0 ? 0 : 1;
}
