#pragma once

#include "ports/MediaWriting.hpp"

#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace tessarin {

// Keeps what it is asked for, and writes a file or fails as it is told.
class ScriptedReencoder final : public AudioReencoder {
 public:
  void reencode(const std::vector<AudioPiece>& pieces, const std::string& outputPath) override {
    calls.push_back(pieces);
    if (fails)
      throw std::runtime_error("no coder");
    std::ofstream(outputPath) << content;
  }

  std::vector<std::vector<AudioPiece>> calls;
  bool fails = false;
  std::string content = "coded anew";
};

} // namespace tessarin
