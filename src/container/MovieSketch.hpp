#pragma once

#include "container/ContainerTesting.hpp"

#include <functional>

// Index boxes put together by hand, so that tests can bend each of them.
namespace tessarin::container {

using Write = std::function<void(BoxWriter&)>;

// The boxes of one ordinary track, each of which a test may replace or leave out. As they stand: four
// samples of 3, 5, 2 and 6 bytes in two chunks at the bytes 100 and 108, times in 1/600 s, the movie's in ms.
struct Sketch {
  Write mvhd = [](BoxWriter& w) {
    w.fullBox(fourCC("mvhd"), 0, 0, [&] {
      w.zeros(8);
      w.u32(1000);
      w.zeros(84);
    });
  };
  Write tkhd = [](BoxWriter& w) {
    w.fullBox(fourCC("tkhd"), 0, 3, [&] {
      w.zeros(8);
      w.u32(7);
      w.zeros(24);
      for (const std::int32_t value : Track{}.matrix)
        w.i32(value);
      w.zeros(8);
    });
  };
  Write edts;
  Write mdhd = [](BoxWriter& w) {
    w.fullBox(fourCC("mdhd"), 0, 0, [&] {
      w.zeros(8);
      w.u32(600);
      w.zeros(8);
    });
  };
  FourCC handler = fourCC("vide");
  Write stsd = [](BoxWriter& w) {
    w.fullBox(fourCC("stsd"), 0, 0, [&] {
      w.u32(2);
      w.append(videoDescription(64, 48).box);
      w.append(videoDescription(32, 24).box);
    });
  };
  Write stts = table("stts", {{3, 20}, {1, 30}});
  Write ctts;
  Write stss;
  Write stsz = [](BoxWriter& w) {
    w.fullBox(fourCC("stsz"), 0, 0, [&] {
      for (const std::uint32_t value : {0, 4, 3, 5, 2, 6})
        w.u32(value);
    });
  };
  Write stsc = table("stsc", {{1, 2, 1}, {2, 2, 2}});
  Write chunks = table("stco", {{100}, {108}});
  Write mvex;

  // A full box of a count and as many entries.
  static Write table(const char (&type)[5], std::vector<std::vector<std::uint32_t>> entries,
                     std::uint8_t version = 0) {
    return [=, code = fourCC(type)](BoxWriter& w) {
      w.fullBox(code, version, 0, [&] {
        w.u32(static_cast<std::uint32_t>(entries.size()));
        for (const auto& entry : entries) {
          for (const std::uint32_t value : entry)
            w.u32(value);
        }
      });
    };
  }

  void writeTable(BoxWriter& w) const {
    w.box(fourCC("stbl"), [&] {
      for (const Write& part : {stsd, stts, ctts, stss, stsz, stsc, chunks})
        put(part, w);
    });
  }
  void write(BoxWriter& w) const {
    w.box(fourCC("moov"), [&] {
      put(mvhd, w);
      w.box(fourCC("trak"), [&] {
        put(tkhd, w);
        put(edts, w);
        w.box(fourCC("mdia"), [&] {
          put(mdhd, w);
          w.fullBox(fourCC("hdlr"), 0, 0, [&] {
            w.zeros(4);
            w.code(handler);
            w.zeros(13);
          });
          w.box(fourCC("minf"), [&] { writeTable(w); });
        });
      });
      put(mvex, w);
    });
  }
  static void put(const Write& part, BoxWriter& w) {
    if (part)
      part(w);
  }

  // With media from byte 8 on to byte 200, then the index.
  MemoryFile file() const {
    BoxWriter w;
    w.box(fourCC("mdat"), [&] { w.zeros(192); });
    write(w);
    return MemoryFile(w.bytes());
  }

  // An index that announces fragments: no samples of its own, defaults for them.
  static Sketch fragmented() {
    Sketch sketch;
    sketch.stts = table("stts", {});
    sketch.stsz = [](BoxWriter& w) { w.fullBox(fourCC("stsz"), 0, 0, [&] { w.zeros(8); }); };
    sketch.stsc = table("stsc", {});
    sketch.chunks = table("stco", {});
    sketch.mvex = [](BoxWriter& w) {
      w.box(fourCC("mvex"), [&] {
        w.fullBox(fourCC("trex"), 0, 0, [&] {
          for (const std::uint32_t value : {7U, 1U, 20U, 4U, 0x10000U})
            w.u32(value);
        });
      });
    };
    return sketch;
  }
};

inline Sketch with(const std::function<void(Sketch&)>& change) {
  Sketch sketch;
  change(sketch);
  return sketch;
}

inline std::vector<std::uint64_t> offsets(const Movie& movie) {
  std::vector<std::uint64_t> found;
  for (const Sample& sample : movie.tracks.at(0).samples)
    found.push_back(sample.offset);
  return found;
}

// A fragment of the track of Sketch::fragmented().
struct FragmentSketch {
  std::uint32_t headFlags = 0x20000;
  std::vector<std::uint32_t> head; // what the flags announce
  Write tfdt;
  std::vector<Write> runs;
  std::vector<Write> runsOfSecondPart; // of the same track, without anything said of where its data lies
  std::size_t mediaSize = 40;
  std::uint32_t id = 7;

  void write(BoxWriter& w) const {
    w.box(fourCC("moof"), [&] {
      w.fullBox(fourCC("mfhd"), 0, 0, [&] { w.u32(1); });
      w.box(fourCC("traf"), [&] {
        w.fullBox(fourCC("tfhd"), 0, headFlags, [&] {
          w.u32(id);
          for (const std::uint32_t value : head)
            w.u32(value);
        });
        Sketch::put(tfdt, w);
        for (const Write& run : runs)
          run(w);
      });
      if (runsOfSecondPart.empty())
        return;
      w.box(fourCC("traf"), [&] {
        w.fullBox(fourCC("tfhd"), 0, 0, [&] { w.u32(id); });
        for (const Write& run : runsOfSecondPart)
          run(w);
      });
    });
    w.box(fourCC("mdat"), [&] { w.zeros(mediaSize); });
  }
};

inline Write run(std::uint32_t flags, std::uint32_t count, std::vector<std::uint32_t> values,
                 std::uint8_t version = 0) {
  return [=](BoxWriter& w) {
    w.fullBox(fourCC("trun"), version, flags, [&] {
      w.u32(count);
      for (const std::uint32_t value : values)
        w.u32(value);
    });
  };
}

struct FragmentedFile {
  MemoryFile file;
  std::uint64_t firstOffset = 0; // of the first fragment
};

inline FragmentedFile fragmentedFile(const std::vector<FragmentSketch>& fragments) {
  BoxWriter w;
  Sketch::fragmented().write(w);
  const std::uint64_t first = w.size();
  for (const FragmentSketch& fragment : fragments)
    fragment.write(w);
  return {MemoryFile(w.bytes()), first};
}

} // namespace tessarin::container
