// Runs a fuzz target without libFuzzer: every seed given (files, or every file in the directories
// given), then a fixed set of mutations of each (bit flips, cuts, inserted and repeated bytes), the
// same on every run. Used as a regression test in the builds that are not fuzzing.
#include <cstdint>
#include <cstdio>
#include <dirent.h>
#include <fstream>
#include <string>
#include <sys/stat.h>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);
extern "C" __attribute__((weak)) int LLVMFuzzerInitialize(int *argc, char ***argv);

namespace
{

std::vector<std::string> files_in(const std::string &path)
{
    struct stat info {
    };
    if (stat(path.c_str(), &info) != 0)
        return {};
    if (!S_ISDIR(info.st_mode))
        return {path};
    std::vector<std::string> files;
    if (DIR *dir = opendir(path.c_str())) {
        while (const dirent *entry = readdir(dir))
            if (entry->d_name[0] != '.')
                files.push_back(path + "/" + entry->d_name);
        closedir(dir);
    }
    return files;
}

uint32_t g_state = 2463534242u;
uint32_t next_random()
{
    g_state ^= g_state << 13;
    g_state ^= g_state >> 17;
    g_state ^= g_state << 5;
    return g_state;
}

void run(const std::vector<uint8_t> &input)
{
    // A copy of exactly the right size, so a read past the end is caught by the sanitizers.
    std::vector<uint8_t> exact(input);
    LLVMFuzzerTestOneInput(exact.empty() ? nullptr : exact.data(), exact.size());
}

} // namespace

int main(int argc, char **argv)
{
    if (LLVMFuzzerInitialize != nullptr)
        LLVMFuzzerInitialize(&argc, &argv);
    size_t runs = 0;
    for (int i = 1; i < argc; ++i) {
        for (const std::string &file : files_in(argv[i])) {
            std::ifstream stream(file, std::ios::binary);
            const std::vector<uint8_t> seed((std::istreambuf_iterator<char>(stream)),
                                            std::istreambuf_iterator<char>());
            run(seed);
            ++runs;
            for (int round = 0; round < 200; ++round) {
                std::vector<uint8_t> mutant = seed;
                const int edits = 1 + static_cast<int>(next_random() % 4);
                for (int edit = 0; edit < edits; ++edit) {
                    const size_t at = mutant.empty() ? 0 : next_random() % mutant.size();
                    switch (next_random() % 5) {
                    case 0:
                        if (!mutant.empty())
                            mutant[at] ^= static_cast<uint8_t>(1u << (next_random() % 8));
                        break;
                    case 1:
                        mutant.resize(at);
                        break;
                    case 2:
                        mutant.insert(mutant.begin() + static_cast<long>(at),
                                      static_cast<uint8_t>(next_random()));
                        break;
                    case 3:
                        if (!mutant.empty())
                            mutant.insert(mutant.begin() + static_cast<long>(at), 64, mutant[at]);
                        break;
                    default:
                        if (!mutant.empty())
                            mutant[at] = static_cast<uint8_t>(next_random());
                        break;
                    }
                }
                run(mutant);
                ++runs;
            }
        }
    }
    fprintf(stderr, "replayed %zu inputs\n", runs);
    return runs > 0 ? 0 : 1;
}
