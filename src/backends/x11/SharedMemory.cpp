#include "backends/x11/SharedMemory.hpp"

#include "ports/Capture.hpp"

#include <sys/ipc.h>
#include <sys/mman.h>
#include <sys/shm.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>
#include <utility>

namespace tessarin::x11 {

namespace {

class MappedMemory final : public PixelMemory {
 public:
  MappedMemory(void* data, std::size_t size) : PixelMemory(static_cast<std::uint8_t*>(data), size) {}
  ~MappedMemory() override { munmap(data(), size()); }
};

class AttachedMemory final : public PixelMemory {
 public:
  AttachedMemory(void* data, std::size_t size) : PixelMemory(static_cast<std::uint8_t*>(data), size) {}
  ~AttachedMemory() override { shmdt(data()); }
};

std::shared_ptr<PixelMemory> privateMemory(std::size_t bytes) {
  void* data = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (data == MAP_FAILED) {
    throw CaptureFailure();
  }
  return std::make_shared<MappedMemory>(data, bytes);
}

// Memory can be shared only with a server on this machine.
bool isLocal(int descriptor) {
  sockaddr_storage address{};
  socklen_t length = sizeof address;
  return getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &length) == 0 &&
         address.ss_family == AF_UNIX;
}

bool hasThirtyTwoBits(const xcb_setup_t& setup, std::uint8_t depth) {
  for (auto formats = xcb_setup_pixmap_formats_iterator(&setup); formats.rem > 0; xcb_format_next(&formats)) {
    if (formats.data->depth == depth) {
      return formats.data->bits_per_pixel == 32 && formats.data->scanline_pad == 32;
    }
  }
  return false;
}

} // namespace

namespace {

class Hold {
 public:
  Hold(std::shared_ptr<PixelMemory> memory, std::shared_ptr<std::atomic<int>> holders)
      : memory_(std::move(memory)), holders_(std::move(holders)) {
    holders_->fetch_add(1, std::memory_order_relaxed);
  }
  // Everything that was read of the pixels was read before they are written again.
  ~Hold() { holders_->fetch_sub(1, std::memory_order_release); }
  Hold(const Hold&) = delete;
  Hold& operator=(const Hold&) = delete;

 private:
  std::shared_ptr<PixelMemory> memory_;
  std::shared_ptr<std::atomic<int>> holders_;
};

} // namespace

PixelBuffer::PixelBuffer(Connection& connection, std::shared_ptr<PixelMemory> memory, xcb_shm_seg_t segment)
    : connection_(&connection), memory_(std::move(memory)), holders_(std::make_shared<std::atomic<int>>(0)),
      segment_(segment) {}

PixelBuffer::~PixelBuffer() {
  if (segment_ != 0) {
    xcb_shm_detach(connection_->get(), segment_);
  }
}

PixelBuffer::PixelBuffer(PixelBuffer&& other) noexcept
    : connection_(other.connection_), memory_(std::move(other.memory_)), holders_(std::move(other.holders_)),
      segment_(std::exchange(other.segment_, 0)) {}

PixelBuffer& PixelBuffer::operator=(PixelBuffer&& other) noexcept {
  std::swap(connection_, other.connection_);
  std::swap(memory_, other.memory_);
  std::swap(holders_, other.holders_);
  std::swap(segment_, other.segment_);
  return *this;
}

std::shared_ptr<const void> PixelBuffer::hold() const {
  return std::make_shared<Hold>(memory_, holders_);
}

PixelReader::PixelReader(Connection& connection, PixelTransport best)
    : connection_(connection), transport_(best) {
  const auto& screen = connection.screen();
  if (!understands(screen.root_depth, screen.root_visual)) {
    throw CaptureFailure();
  }
  const auto& extension = connection.extension(Extension::shm);
  if (!extension.isPresent || !isLocal(connection.descriptor())) {
    transport_ = PixelTransport::connection;
  } else if (transport_ == PixelTransport::descriptor && !extension.isAtLeast(1, 2)) {
    transport_ = PixelTransport::systemNumber;
  }
}

bool PixelReader::understands(std::uint8_t depth, xcb_visualid_t visual) const {
  const auto& setup = connection_.setup();
  if (setup.image_byte_order != XCB_IMAGE_ORDER_LSB_FIRST || (depth != 24 && depth != 32) ||
      !hasThirtyTwoBits(setup, depth)) {
    return false;
  }
  auto depths = xcb_screen_allowed_depths_iterator(&connection_.screen());
  for (; depths.rem > 0; xcb_depth_next(&depths)) {
    for (auto visuals = xcb_depth_visuals_iterator(depths.data); visuals.rem > 0;
         xcb_visualtype_next(&visuals)) {
      if (visuals.data->visual_id == visual) {
        return depths.data->depth == depth && visuals.data->red_mask == 0xFF0000 &&
               visuals.data->green_mask == 0xFF00 && visuals.data->blue_mask == 0xFF;
      }
    }
  }
  return false;
}

PixelBuffer PixelReader::makeBuffer(std::size_t bytes) {
  if (transport_ == PixelTransport::descriptor) {
    if (auto buffer = descriptorBuffer(bytes)) {
      return std::move(*buffer);
    }
    transport_ = PixelTransport::systemNumber;
  }
  if (transport_ == PixelTransport::systemNumber) {
    if (auto buffer = systemNumberBuffer(bytes)) {
      return std::move(*buffer);
    }
    transport_ = PixelTransport::connection;
  }
  return {connection_, privateMemory(bytes), 0};
}

std::optional<PixelBuffer> PixelReader::descriptorBuffer(std::size_t bytes) {
  const int file = memfd_create("pixels", MFD_CLOEXEC);
  if (file < 0) {
    return std::nullopt;
  }
  void* data = ftruncate(file, static_cast<off_t>(bytes)) == 0
                   ? mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0)
                   : MAP_FAILED;
  if (data == MAP_FAILED) {
    close(file);
    return std::nullopt;
  }
  auto memory = std::make_shared<MappedMemory>(data, bytes);
  const auto segment = xcb_generate_id(connection_.get());
  // The descriptor is closed once it has been passed.
  if (!connection_.succeeded(xcb_shm_attach_fd_checked(connection_.get(), segment, file, 0))) {
    return std::nullopt;
  }
  return PixelBuffer(connection_, std::move(memory), segment);
}

std::optional<PixelBuffer> PixelReader::systemNumberBuffer(std::size_t bytes) {
  const int number = shmget(IPC_PRIVATE, bytes, IPC_CREAT | 0600);
  if (number < 0) {
    return std::nullopt;
  }
  std::shared_ptr<PixelMemory> memory;
  if (void* data = shmat(number, nullptr, 0); reinterpret_cast<std::intptr_t>(data) != -1) {
    memory = std::make_shared<AttachedMemory>(data, bytes);
  }
  const auto segment = xcb_generate_id(connection_.get());
  bool isAttached = false;
  try {
    isAttached = memory && connection_.succeeded(xcb_shm_attach_checked(
                               connection_.get(), segment, static_cast<std::uint32_t>(number), 0));
  } catch (const DesktopFailure&) {
    shmctl(number, IPC_RMID, nullptr);
    throw;
  }
  // Attached or not, the number goes away with the last process that holds the memory.
  shmctl(number, IPC_RMID, nullptr);
  return isAttached ? std::optional(PixelBuffer(connection_, std::move(memory), segment)) : std::nullopt;
}

PixelReader::Pending PixelReader::request(xcb_drawable_t drawable, const PixelRect& rectangle,
                                          const PixelBuffer& buffer, std::size_t offset) {
  constexpr auto allPlanes = ~std::uint32_t{0};
  const auto x = static_cast<std::int16_t>(rectangle.x);
  const auto y = static_cast<std::int16_t>(rectangle.y);
  const auto width = static_cast<std::uint16_t>(rectangle.width);
  const auto height = static_cast<std::uint16_t>(rectangle.height);
  Pending pending{{}, buffer.data() + offset, packedBytes(rectangle)};
  if (buffer.segment() != 0) {
    pending.cookie =
        xcb_shm_get_image(connection_.get(), drawable, x, y, width, height, allPlanes,
                          XCB_IMAGE_FORMAT_Z_PIXMAP, buffer.segment(), static_cast<std::uint32_t>(offset));
  } else {
    pending.cookie =
        xcb_get_image(connection_.get(), XCB_IMAGE_FORMAT_Z_PIXMAP, drawable, x, y, width, height, allPlanes);
  }
  return pending;
}

bool PixelReader::collect(const Pending& pending) {
  if (const auto* shared = std::get_if<xcb_shm_get_image_cookie_t>(&pending.cookie)) {
    return connection_.reply(xcb_shm_get_image_reply, *shared) != nullptr;
  }
  const auto image = connection_.reply(xcb_get_image_reply, std::get<xcb_get_image_cookie_t>(pending.cookie));
  if (!image || static_cast<std::size_t>(xcb_get_image_data_length(image.get())) < pending.bytes) {
    return false;
  }
  std::memcpy(pending.target, xcb_get_image_data(image.get()), pending.bytes);
  return true;
}

} // namespace tessarin::x11
