#include "DesktopFixture.hpp"
#include "PngReaders.hpp"
#include "PrivateServer.hpp"
#include "WorkerProcess.hpp"

#include "support/TemporaryDirectory.hpp"

#include <xcb/xproto.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <thread>

namespace tessarin {
namespace {

namespace fs = std::filesystem;

// A worker on a desktop, beside the same commands by themselves.
class WorkerDesktopTest : public DesktopFixture {
 protected:
  // A new empty directory with the session's identifier as its name.
  std::string freshSession() {
    const std::string parent = directory / std::to_string(sessions_++);
    const std::string session = parent + "/" + std::string(anyRequestID);
    fs::create_directories(session);
    return session;
  }

  std::string listedAlone() const {
    std::string output = run({"list", "--exclude-parent-application"}).output;
    output.pop_back();
    return output;
  }

  // Where files are and how long it took tells one preparation from another.
  static std::string withoutPlaceAndTimes(const std::string& envelope, const std::string& session) {
    std::string text = std::regex_replace(envelope, std::regex(R"("(capture|discovery)Ms":[-+.e0-9]+)"), "");
    for (std::size_t at = 0; (at = text.find(session)) != std::string::npos;)
      text.erase(at, session.size());
    return text;
  }

  static std::string bytesOf(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  }

  static std::size_t countOf(const std::string& response, const char* array) {
    return json::Document(response).root().member("data")->member(array)->arraySize();
  }

  TemporaryDirectory directory;

 private:
  int sessions_ = 0;
};

TEST_F(WorkerDesktopTest, ListsAsTheCommandByItself) {
  const auto client = desktop.client({"--at", "30,40", "--size", "200x100", "--title", "a/b \"\xC3\xA4\""});
  const OwnWindow own(desktop.display(), 10, 10, 100, 100, 0x00FF00);
  WorkerProcess worker(desktop.display());
  for (int i = 0; i < 3; ++i) {
    const std::string response = worker.list();
    EXPECT_EQ(envelopeOf(response), listedAlone());
    EXPECT_NE(response.find(R"("title":"a\/b )"), std::string::npos) << "slashes are escaped";
    EXPECT_EQ(response.find(own.id()), std::string::npos) << "the host's window";
  }
  EXPECT_EQ(worker.end(), 0);
}

TEST_F(WorkerDesktopTest, PreparesAsTheCommandByItself) {
  const auto client = desktop.client({"--at", "30,40", "--size", "400x300", "--paint", "photo"});
  const OwnWindow own(desktop.display(), 35, 40, 10, 10, 0x00FF00);
  WorkerProcess worker(desktop.display());
  for (int i = 0; i < 3; ++i) {
    const std::string ours = freshSession();
    const std::string alone = freshSession();
    const std::string response = envelopeOf(worker.prepare(ours));
    std::string reply = run(preparation(alone)).output;
    reply.pop_back();
    EXPECT_EQ(withoutPlaceAndTimes(response, ours), withoutPlaceAndTimes(reply, alone));
    EXPECT_EQ(countOf(response, "captures"), 1U);
    EXPECT_EQ(response.find(own.id()), std::string::npos) << "the host's window is not offered";
    const std::string picture = bytesOf(ours + "/0.png");
    EXPECT_TRUE(picture == bytesOf(alone + "/0.png"));
    EXPECT_FALSE(fs::exists(ours + "/0.pending.png"));
    EXPECT_EQ(readByAll(ours + "/0.png").at(40 * 800 + 35), 0x00FF00FFU) << "but it is seen";
  }
  EXPECT_EQ(worker.end(), 0);
}

TEST_F(WorkerDesktopTest, ServesWhatWasWrittenAhead) {
  WorkerProcess worker(desktop.display());
  const std::string session = freshSession();
  const std::string second = "FFFFFFFF-3c5a-4f1b-9e43-1f2d3c4b5a69";
  const std::string third = "00000000-3c5a-4f1b-9e43-1f2d3c4b5a69";
  const std::string first = worker.ask(workerRequest(preparation(session)) + "\n" + workerListing(second) +
                                       "\n" + workerRequest(preparation(session), third));
  worker.process().closeInput();
  EXPECT_NE(first.find(R"("requestId":")" + std::string(anyRequestID)), std::string::npos);
  EXPECT_TRUE(fs::exists(session + "/0.png"));
  EXPECT_EQ(envelopeOf(worker.process().readLine().value_or(""), second), listedAlone());
  // The directory is not empty any more, which is a failure of that request alone.
  EXPECT_EQ(envelopeOf(worker.process().readLine().value_or(""), third) + "\n",
            failureReply("outputFailed", "The screenshot could not be written to its temporary output."));
  EXPECT_EQ(worker.process().waitForEnd(), 0);
}

TEST_F(WorkerDesktopTest, SeesWhatHasChangedBetweenRequests) {
  WorkerProcess worker(desktop.display());
  EXPECT_EQ(countOf(worker.list(), "windows"), 0U);
  auto client = desktop.client({"--at", "30,40", "--size", "200x100", "--style", "override"});
  EXPECT_EQ(countOf(worker.list(), "windows"), 1U);
  client->command("move 60 70");
  EXPECT_NE(worker.list().find(R"("framePoints":{"height":100,"width":200,"x":60,"y":70})"),
            std::string::npos);
  client.reset();
  EXPECT_EQ(countOf(worker.list(), "windows"), 0U);

  desktop.run({"xrandr", "--setmonitor", "left", "400/100x600/150+0+0", "screen"});
  desktop.run({"xrandr", "--setmonitor", "right", "400/100x600/150+400+0", "none"});
  EXPECT_EQ(envelopeOf(worker.list()), listedAlone());
  const std::string split = freshSession();
  EXPECT_EQ(countOf(worker.prepare(split), "captures"), 2U);
  EXPECT_EQ(readByAll(split + "/1.png").pixelCount(), 400U * 600U);
  desktop.run({"xrandr", "--delmonitor", "left"});
  desktop.run({"xrandr", "--delmonitor", "right"});
  EXPECT_EQ(countOf(worker.prepare(freshSession()), "captures"), 1U);

  EXPECT_EQ(worker.end(), 0);
}

// The memory of a picture serves for the next one.
TEST_F(WorkerDesktopTest, ShowsNothingOfThePictureBeforeBesideTheScreen) {
  const auto client =
      desktop.client({"--at", "0,0", "--size", "800x600", "--colour", "ffff0000", "--style", "override"});
  WorkerProcess worker(desktop.display());
  const std::string whole = freshSession();
  (void)worker.prepare(whole);
  EXPECT_EQ(readByAll(whole + "/0.png").at(599 * 800 + 799), 0xFF0000FFU);
  // Two columns short of the screen's right edge, so that most of it lies beside the screen.
  desktop.run({"xrandr", "--setmonitor", "beside", "700/100x600/150+798+0", "screen"});
  const std::string beside = freshSession();
  EXPECT_EQ(countOf(worker.prepare(beside), "captures"), 1U);
  const ReadPicture picture = readByAll(beside + "/0.png");
  ASSERT_EQ(picture.pixelCount(), 700U * 600U);
  for (std::size_t pixel = 0; pixel < picture.pixelCount(); ++pixel)
    ASSERT_EQ(picture.at(pixel), pixel % 700 < 2 ? 0xFF0000FFU : 0x000000FFU) << pixel;
}

TEST_F(WorkerDesktopTest, TakesTheScaleOfTheMoment) {
  WorkerProcess worker(desktop.display());
  EXPECT_NE(worker.list().find(R"("scaleFactor":1})"), std::string::npos);
  desktop.run({"xrdb", "-nocpp", "-merge", directory.write("resources", "Xft.dpi: 192\n")});
  const std::string session = freshSession();
  const std::string response = worker.prepare(session);
  EXPECT_NE(response.find(R"("scaleFactor":2)"), std::string::npos) << response;
  EXPECT_NE(response.find(R"("framePoints":{"height":300,"width":400,"x":0,"y":0})"), std::string::npos);
  EXPECT_EQ(readByAll(session + "/0.png").pixelCount(), 800U * 600U);
}

// A server that is gone, and another one under the same name.
TEST_F(WorkerDesktopTest, OutlivesItsServer) {
  PrivateServer server;
  WorkerProcess worker(server.display());
  EXPECT_NE(worker.list().find(R"("pixelSize":{"height":240,"width":320})"), std::string::npos);
  const auto alone = [&](const std::vector<std::string>& arguments) {
    return runProgram(arguments, {.display = server.display()}).output;
  };

  server.end();
  const std::string session = freshSession();
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(envelopeOf(worker.list()) + "\n", alone({"list", "--exclude-parent-application"}));
    EXPECT_EQ(envelopeOf(worker.prepare(session)) + "\n", alone(preparation(session)));
  }
  EXPECT_NE(worker.list().find(R"("code":"permissionDenied")"), std::string::npos);
  EXPECT_TRUE(fs::is_empty(session));

  server.start("640x480");
  EXPECT_NE(worker.list().find(R"("pixelSize":{"height":480,"width":640})"), std::string::npos);
  EXPECT_EQ(countOf(worker.prepare(session), "captures"), 1U);
  EXPECT_EQ(worker.end(), 0);
}

TEST_F(WorkerDesktopTest, TakesANewServerForTheOldOneAtOnce) {
  PrivateServer server;
  WorkerProcess worker(server.display());
  EXPECT_NE(worker.list().find(R"("width":320)"), std::string::npos);
  server.restart("640x480");
  EXPECT_NE(worker.list().find(R"("width":640)"), std::string::npos) << "without a failure in between";
}

// Long before the patience of a command is at its end.
TEST_F(WorkerDesktopTest, AnswersAtOnceWhenItsServerDiesInARequest) {
  WorkerProcess worker(desktop.display());
  const std::string session = freshSession();
  EXPECT_EQ(countOf(worker.list(), "displays"), 1U);
  ASSERT_EQ(::kill(desktop.serverPid(), SIGSTOP), 0);
  ASSERT_TRUE(worker.process().writeLine(workerRequest(preparation(session))));
  EXPECT_EQ(worker.process().readLine(std::chrono::milliseconds(200)), std::nullopt);
  desktop.killServer();
  const std::string response = worker.process().readLine(std::chrono::seconds(5)).value_or("");
  EXPECT_EQ(envelopeOf(response) + "\n",
            failureReply("contentUnavailable", "Shareable screen content is temporarily unavailable."));
  EXPECT_TRUE(fs::is_empty(session));
  EXPECT_NE(worker.list().find(R"("code":"permissionDenied")"), std::string::npos);
  EXPECT_EQ(worker.end(), 0);
}

// Longer than the patience of every command.
TEST_F(WorkerDesktopTest, DoesNotHangOnAServerThatDoesNotAnswer) {
  WorkerProcess worker(desktop.display());
  EXPECT_EQ(countOf(worker.list(), "displays"), 1U);
  ::kill(desktop.serverPid(), SIGSTOP);
  const std::string response = worker.ask(workerListing(), std::chrono::seconds(30));
  EXPECT_EQ(envelopeOf(response) + "\n",
            failureReply("contentUnavailable", "Shareable screen content is temporarily unavailable."));
  ::kill(desktop.serverPid(), SIGCONT);
  // A server that was given up may be left alone for a while.
  std::string answer;
  for (int i = 0; i < 300 && answer.find(R"("ok":true)") == std::string::npos; ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(i > 0 ? 100 : 0));
    answer = worker.list();
  }
  EXPECT_EQ(envelopeOf(answer), listedAlone());
}

TEST_F(WorkerDesktopTest, ConnectsOnceForAllRequests) {
  const auto descriptors = [](pid_t process) {
    std::vector<std::string> result;
    for (const auto& entry : fs::directory_iterator("/proc/" + std::to_string(process) + "/fd")) {
      std::error_code none;
      const fs::path target = fs::read_symlink(entry.path(), none);
      if (target.string().starts_with("socket:"))
        result.push_back(target);
    }
    return result;
  };
  WorkerProcess worker(desktop.display());
  (void)worker.list();
  const auto sockets = descriptors(worker.process().pid());
  EXPECT_EQ(sockets.size(), 1U);
  (void)worker.prepare(freshSession());
  (void)worker.list();
  EXPECT_EQ(descriptors(worker.process().pid()), sockets) << "the very same";
}

// Many windows with titles of control characters, each of which takes six bytes on the wire.
TEST_F(WorkerDesktopTest, AResponseWithoutMeasureEndsIt) {
  xcb_connection_t* const connection = xcb_connect(desktop.display().c_str(), nullptr);
  const xcb_screen_t* const screen = xcb_setup_roots_iterator(xcb_get_setup(connection)).data;
  const std::string title(8192, '\x01');
  const auto show = [&](int count) {
    for (int i = 0; i < count; ++i) {
      const std::uint32_t window = xcb_generate_id(connection);
      xcb_create_window(connection, screen->root_depth, window, screen->root, 0, 0, 50, 50, 0,
                        XCB_WINDOW_CLASS_INPUT_OUTPUT, screen->root_visual, 0, nullptr);
      xcb_change_property(connection, XCB_PROP_MODE_REPLACE, window, XCB_ATOM_WM_NAME, XCB_ATOM_STRING, 8,
                          static_cast<std::uint32_t>(title.size()), title.data());
      xcb_map_window(connection, window);
    }
    std::free(xcb_get_input_focus_reply(connection, xcb_get_input_focus(connection), nullptr));
  };
  show(70);
  // The windows are of the shell's parent and so not the host's.
  WorkerProcess worker(desktop.display(), true);
  const std::string response = worker.list();
  EXPECT_GT(response.size(), 3'000'000U);
  EXPECT_LT(response.size(), 4'194'304U);
  EXPECT_EQ(countOf(response, "windows"), 70U);
  show(30);
  EXPECT_GT(run({"list"}).output.size(), 4'194'304U) << "by itself the command has no such limit";
  ASSERT_TRUE(worker.process().writeLine(workerListing()));
  EXPECT_EQ(worker.process().readLine(), std::nullopt) << "no part of it";
  EXPECT_EQ(worker.process().waitForEnd(), 1);
  xcb_disconnect(connection);
}

} // namespace
} // namespace tessarin
