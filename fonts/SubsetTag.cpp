#include "fonts/SubsetTag.h"

namespace fonts {

namespace {

uint64_t Fnv1a(const std::string& s, uint64_t h = 14695981039346656037ull) {
    for (unsigned char c : s) {
        h ^= c;
        h *= 1099511628211ull;
    }
    return h;
}

}  // namespace

std::string MakeSubsetTag(const std::string& seed, std::set<std::string>& taken) {
    uint64_t h = Fnv1a(seed);
    // 26^6 tags: a collision is rare, and the next hash of the chain
    // resolves it the same way on every run.
    for (;;) {
        std::string tag(6, 'A');
        uint64_t v = h;
        for (char& c : tag) {
            c = static_cast<char>('A' + v % 26);
            v /= 26;
        }
        if (taken.insert(tag).second) return tag;
        h = Fnv1a("+", h);
    }
}

}  // namespace fonts
