// A chip's counters of the stages of its pipes: what came in, went on, and was dropped.
#pragma once

#include "kiln/Types.h"
#include "sdk/bf_pipe.h"

#include <span>

namespace SoftChip {

// Counts packets. Owned by the chip, under the SDK's lock. The caller checks pipes and stages.
class PathCounters {
 public:
   // `hardware` holds hardwareWords() and outlives it.
   explicit PathCounters(std::span<U64> hardware) : hardware_(hardware) {}
   static std::size_t hardwareWords(unsigned pipes) { return std::size_t{pipes} * wordsPerPipe; }

   // Frames went on to the next stage.
   void passed(unsigned pipe, U32 stage, U64 packets) { count(pipe, stage, packets, packets, 0); }
   void dropped(unsigned pipe, U32 stage, U64 packets) { count(pipe, stage, packets, 0, packets); }
   void count(unsigned pipe, U32 stage, U64 in, U64 out, U64 drops) {
      U64* const words = &hardware_[pipe * wordsPerPipe + stage * wordsPerStage];
      words[0] += in;
      words[1] += out;
      words[2] += drops;
   }
   bf_pipe_path_count_t stage(unsigned pipe, U32 stage) const {
      const U64* const words = &hardware_[pipe * wordsPerPipe + stage * wordsPerStage];
      return {words[0], words[1], words[2]};
   }

   U64& mauDrops(unsigned pipe, U32 stage) { return hardware_[pipe * wordsPerPipe + mauWords + stage]; }
   U64& deparserDrops(unsigned pipe, U32 direction) {
      return hardware_[pipe * wordsPerPipe + deparserWords + direction];
   }

 private:
   static constexpr std::size_t wordsPerStage = 3;
   static constexpr std::size_t mauWords = BF_PIPE_PATH_STAGES * wordsPerStage;
   static constexpr std::size_t deparserWords = mauWords + BF_PIPE_MAU_STAGES;
   static constexpr std::size_t wordsPerPipe = deparserWords + BF_PIPE_DIRECTIONS;

   std::span<U64> hardware_;
};

} // namespace SoftChip
