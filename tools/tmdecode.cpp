// tmdecode: runs stream data through the filter layer, for checks against
// other PDF tools.
//
//   tmdecode RAW OUT FILTER [KEY=NUMBER...] [| FILTER ...]
//   tmdecode --batch LIST      (one job a line: RAW<tab>OUT<tab>FILTERS)
//
// A parameter `globals=PATH` gives a JBIG2Decode its JBIG2Globals bytes;
// `--all` before the arguments decodes image codecs too (they are kept by
// default).  For every job one line goes to stdout: "ok", "corrupt: why",
// "undecodable", "partial" or "error: why".
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include "filters/Filters.h"
#include "base/ASError.h"

namespace {

bool ReadFile(const std::string& path, filters::Bytes& out) {
    std::ifstream f(path, std::ios::binary);
    if (!f) return false;
    out.assign(std::istreambuf_iterator<char>(f), std::istreambuf_iterator<char>());
    return true;
}

bool ParseChain(const std::vector<std::string>& words, filters::FilterChain& chain, std::string& err) {
    for (const std::string& w : words) {
        if (w == "|") continue;
        size_t eq = w.find('=');
        if (eq == std::string::npos) {
            chain.push_back({w, {}});
            continue;
        }
        if (chain.empty()) {
            err = "parameter before any filter: " + w;
            return false;
        }
        std::string key = w.substr(0, eq), val = w.substr(eq + 1);
        if (key == "globals") {
            if (!ReadFile(val, chain.back().params.jbig2Globals)) {
                err = "cannot read " + val;
                return false;
            }
        } else {
            chain.back().params.values[key] = std::strtod(val.c_str(), nullptr);
        }
    }
    return true;
}

std::string RunJob(const std::string& raw, const std::string& out, const std::vector<std::string>& words, bool all) {
    filters::FilterChain chain;
    std::string err;
    if (!ParseChain(words, chain, err)) return "error: " + err;
    filters::Bytes in;
    if (!ReadFile(raw, in)) return "error: cannot read " + raw;
    filters::DecodeOptions opts;
    opts.keepImageCodecs = !all;
    try {
        filters::DecodeResult r = filters::DecodeChain(in, chain, opts);
        std::ofstream f(out, std::ios::binary);
        f.write(reinterpret_cast<const char*>(r.data.data()), static_cast<std::streamsize>(r.data.size()));
        switch (r.status) {
        case filters::DecodeStatus::Ok: return "ok";
        case filters::DecodeStatus::Corrupt: return "corrupt: " + r.message;
        case filters::DecodeStatus::Undecodable: return "undecodable";
        case filters::DecodeStatus::Partial: return "partial";
        }
    } catch (const CVellumError& e) {
        return std::string("error: ") + e.what();
    }
    return "error: unknown";
}

std::vector<std::string> Split(const std::string& s) {
    std::istringstream is(s);
    std::vector<std::string> words;
    for (std::string w; is >> w;) words.push_back(w);
    return words;
}

}  // namespace

int main(int argc, char** argv) {
    std::vector<std::string> args(argv + 1, argv + argc);
    bool all = false;
    if (!args.empty() && args[0] == "--all") {
        all = true;
        args.erase(args.begin());
    }
    if (args.size() == 2 && args[0] == "--batch") {
        std::ifstream list(args[1]);
        if (!list) {
            std::cerr << "tmdecode: cannot read " << args[1] << "\n";
            return 2;
        }
        for (std::string line; std::getline(list, line);) {
            size_t t1 = line.find('\t'), t2 = t1 == std::string::npos ? t1 : line.find('\t', t1 + 1);
            if (t2 == std::string::npos) {
                std::cout << "error: bad job line\n";
                continue;
            }
            std::cout << RunJob(line.substr(0, t1), line.substr(t1 + 1, t2 - t1 - 1), Split(line.substr(t2 + 1)), all)
                      << "\n";
        }
        return 0;
    }
    if (args.size() < 3) {
        std::cerr << "usage: tmdecode [--all] RAW OUT FILTER [KEY=NUMBER...] [| FILTER ...]\n"
                     "       tmdecode [--all] --batch LIST\n";
        return 2;
    }
    std::string result = RunJob(args[0], args[1], std::vector<std::string>(args.begin() + 2, args.end()), all);
    std::cout << result << "\n";
    return result.rfind("error", 0) == 0 ? 1 : 0;
}
