// tessarin-test-entry: a window with a field for plain text and one for a password, by a toolkit that speaks
// to accessibility.
//
// Says "ready <window>" on standard output when the window has the keyboard, its plain field first, or with
// the argument "password" that one. Carries out the commands that come on standard input, answering "done" to
// each, or for "text" "text <what the field holds>", and ends at once when its input ends or "quit" comes:
//   focus plain|password   moves the focus within the window
//   text plain|password
//   clear                  empties both
//   present                asks for the keyboard again, as a person does by a click; answered when it is had
//   show, hide             whether what is in the password field is to be read; it is not at first
//   hang <milliseconds>    answered at once; nothing else is done for so long

#include <gdk/gdkx.h>
#include <gtk/gtk.h>

#include <unistd.h>

#include <cstdio>
#include <string>

namespace {

struct EntryWindow {
  GtkWidget* window = nullptr;
  GtkEntry* plain = nullptr;
  GtkEntry* password = nullptr;
  std::string answerOnceActive; // said when the window has the keyboard

  GtkEntry* field(const std::string& name) const { return name == "password" ? password : plain; }
};

void say(const std::string& line) {
  const std::string text = line + "\n";
  if (write(STDOUT_FILENO, text.data(), text.size()) < 0)
    gtk_main_quit();
}

void answerIfActive(EntryWindow& it) {
  if (it.answerOnceActive.empty() || !gtk_window_is_active(GTK_WINDOW(it.window)))
    return;
  say(it.answerOnceActive);
  it.answerOnceActive.clear();
}

void activeChanged(GObject*, GParamSpec*, gpointer window) {
  answerIfActive(*static_cast<EntryWindow*>(window));
}

// Through the window manager where there is one, else from the server.
void askForKeyboard(EntryWindow& it) {
  GdkWindow* const window = gtk_widget_get_window(it.window);
  gdk_window_focus(window, gdk_x11_get_server_time(window));
}

void carryOut(EntryWindow& it, const std::string& line) {
  const auto space = line.find(' ');
  const std::string command = line.substr(0, space);
  const std::string argument = space == std::string::npos ? "" : line.substr(space + 1);
  if (command == "text") {
    say(std::string("text ") + gtk_entry_get_text(it.field(argument)));
    return;
  }
  if (command == "present") {
    it.answerOnceActive = "done";
    askForKeyboard(it);
    answerIfActive(it);
    return;
  }
  if (command == "focus") {
    gtk_widget_grab_focus(GTK_WIDGET(it.field(argument)));
  } else if (command == "clear") {
    gtk_entry_set_text(it.plain, "");
    gtk_entry_set_text(it.password, "");
  } else if (command == "show" || command == "hide") {
    gtk_entry_set_visibility(it.password, command == "show");
  } else if (command == "hang") {
    say("done");
    g_usleep(std::stoul(argument) * 1000);
    return;
  } else if (command == "quit") {
    gtk_main_quit();
  } else {
    say("unknown command " + command);
    return;
  }
  say("done");
}

gboolean inputReady(GIOChannel* channel, GIOCondition, gpointer window) {
  gchar* text = nullptr;
  gsize end = 0;
  if (g_io_channel_read_line(channel, &text, nullptr, &end, nullptr) != G_IO_STATUS_NORMAL) {
    gtk_main_quit();
    return G_SOURCE_REMOVE;
  }
  const std::string line(text, end);
  g_free(text);
  carryOut(*static_cast<EntryWindow*>(window), line);
  return G_SOURCE_CONTINUE;
}

GtkEntry* addField(GtkWidget* box, bool isVisible) {
  GtkWidget* const field = gtk_entry_new();
  gtk_entry_set_visibility(GTK_ENTRY(field), isVisible);
  gtk_box_pack_start(GTK_BOX(box), field, TRUE, TRUE, 0);
  return GTK_ENTRY(field);
}

void build(EntryWindow& it) {
  it.window = gtk_window_new(GTK_WINDOW_TOPLEVEL);
  gtk_window_set_title(GTK_WINDOW(it.window), "Entry");
  gtk_window_set_default_size(GTK_WINDOW(it.window), 320, 80);
  GtkWidget* const box = gtk_box_new(GTK_ORIENTATION_VERTICAL, 0);
  gtk_container_add(GTK_CONTAINER(it.window), box);
  it.plain = addField(box, true);
  it.password = addField(box, false);
  g_signal_connect(it.window, "notify::is-active", G_CALLBACK(activeChanged), &it);
  g_signal_connect(it.window, "destroy", G_CALLBACK(gtk_main_quit), nullptr);
}

} // namespace

int main(int count, char** arguments) {
  // The identifiers of windows are those of X.
  gdk_set_allowed_backends("x11");
  if (!gtk_init_check(&count, &arguments)) {
    std::fprintf(stderr, "no display\n");
    return 1;
  }
  EntryWindow it;
  build(it);
  gtk_widget_grab_focus(GTK_WIDGET(it.field(count > 1 ? arguments[1] : "plain")));
  gtk_widget_show_all(it.window);
  it.answerOnceActive = "ready " + std::to_string(gdk_x11_window_get_xid(gtk_widget_get_window(it.window)));
  askForKeyboard(it);
  GIOChannel* const input = g_io_channel_unix_new(STDIN_FILENO);
  g_io_add_watch(input, static_cast<GIOCondition>(G_IO_IN | G_IO_HUP), inputReady, &it);
  gtk_main();
  g_io_channel_unref(input);
  return 0;
}
