// The building block of a decoding chain: one filter that takes its input in
// chunks and pushes what it decodes to the next stage.  Private to filters/.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "filters/Filters.h"

namespace filters::detail {

// Thrown by a stage that meets damaged data.  `errorNumber` is the core
// error a strict decode raises; `message` is the warning text otherwise.
struct CorruptData {
    int errorNumber;
    std::string message;
};

[[noreturn]] inline void Fail(int errorNumber, std::string message) {
    throw CorruptData{errorNumber, std::move(message)};
}

// Thrown when a stage's output passes the configured ceiling.
struct OutputTooLarge {};

// Where a stage delivers its output.
class StageSink {
public:
    virtual ~StageSink() = default;
    virtual void Put(const uint8_t* data, size_t size) = 0;
};

class FilterStage {
public:
    virtual ~FilterStage() = default;

    void Connect(StageSink* next, uint64_t maxOutput) {
        next_ = next;
        maxOutput_ = maxOutput;
    }
    // Consumes a chunk of input.  Input that arrives after the filter's own
    // end-of-data marker is ignored, and so is everything after the stage
    // (or one after it) met damaged data.
    void Write(const uint8_t* data, size_t size) {
        if (dead_) return;
        try {
            DoWrite(data, size);
        } catch (const CorruptData&) {
            dead_ = true;
            throw;
        }
    }
    // The input is complete: flush what is pending.
    void Finish() {
        if (dead_) return;
        dead_ = true;
        DoFinish();
    }
    bool Dead() const { return dead_; }

    uint64_t Produced() const { return produced_; }

protected:
    virtual void DoWrite(const uint8_t* data, size_t size) = 0;
    virtual void DoFinish() = 0;

    // The output ceiling, for stages that must size a whole image first.
    uint64_t Limit() const { return maxOutput_; }

    void Emit(const uint8_t* data, size_t size) {
        if (size == 0) return;
        produced_ += size;
        if (produced_ > maxOutput_) throw OutputTooLarge{};
        next_->Put(data, size);
    }

private:
    StageSink* next_ = nullptr;
    uint64_t maxOutput_ = 0;
    uint64_t produced_ = 0;
    bool dead_ = false;
};

// Factories, one per filter family; `params` are the filter's DecodeParms.
std::unique_ptr<FilterStage> MakeASCIIHexStage();
std::unique_ptr<FilterStage> MakeASCII85Stage();
std::unique_ptr<FilterStage> MakeRunLengthStage();
std::unique_ptr<FilterStage> MakeLZWStage(const FilterParams& params);
std::unique_ptr<FilterStage> MakeFlateStage();
// The predictor that follows Flate or LZW; null when Predictor is absent or 1.
std::unique_ptr<FilterStage> MakePredictorStage(const FilterParams& params);
std::unique_ptr<FilterStage> MakeCCITTFaxStage(const FilterParams& params);
std::unique_ptr<FilterStage> MakeDCTStage(const FilterParams& params);
std::unique_ptr<FilterStage> MakeJBIG2Stage(const FilterParams& params);

// Reads an integer parameter and checks it lies in [lo, hi]; a value outside
// the range is damaged data.
int IntParam(const FilterParams& params, const char* key, int dflt, int lo, int hi, int errorNumber);

}  // namespace filters::detail
