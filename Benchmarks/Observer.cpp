// Measures a program from outside, in milliseconds: the time is taken when the X server or the bus reports an
// event, never by the program.
//
//   Observer [OPTION]... -- COMMAND [ARGUMENT]...
//
//   --name NAME          waits for that name on the session bus: "exec_to_name"
//   --post-at-name NAME  posts that message as soon as the name is owned, as a waiting client does
//   --window             waits for the first top-level window: "exec_to_mapped"
//   --rounds COUNT       then, after each pause, posts the message of --post and waits until every --pixel is
//                        right: "pixel", and the processor time of the program until then: "processor";
//                        takes the window off the screen with the message of --hide
//   --pixel X,Y,RRGGBB   a colour expected there in the window; negative numbers count from the far edges
//   --pause SECONDS      so that what the program does while idle is done
//   --memory             at the end, after a pause: "pss" in KiB
//
// Prints one JSON object. Every wait is bounded; what does not come in time is a failure.

#include "Benchmarks/Messages.h"

#include <xcb/damage.h>
#include <xcb/xcb.h>

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <iostream>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

constexpr auto longestWait = 20s;

// Programs have windows that are never seen: for the clipboard, for the window group, for a tray.
constexpr int smallestWidth = 120;
constexpr int smallestHeight = 40;

struct Failure : std::runtime_error {
    using std::runtime_error::runtime_error;
};

double milliseconds(Clock::duration duration) {
    return std::chrono::duration<double, std::milli>(duration).count();
}

struct FreeReply {
    void operator()(void *reply) const { std::free(reply); }
};
template <class Reply>
using ReplyPointer = std::unique_ptr<Reply, FreeReply>;

struct ExpectedColor {
    int x;
    int y;
    std::uint32_t color;
};

struct Geometry {
    int x;
    int y;
    int width;
    int height;
};

/// What there is to see on the screen.
class Screen {
public:
    Screen()
        : connection_(xcb_connect(nullptr, nullptr)) {
        if (xcb_connection_has_error(connection_))
            throw Failure("there is no display");
        root_ = xcb_setup_roots_iterator(xcb_get_setup(connection_)).data->root;
        const std::uint32_t events = XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY;
        xcb_change_window_attributes(connection_, root_, XCB_CW_EVENT_MASK, &events);
        const ReplyPointer<xcb_damage_query_version_reply_t> version(xcb_damage_query_version_reply(
            connection_, xcb_damage_query_version(connection_, 1, 1), nullptr));
        if (!version)
            throw Failure("the display does not report damage");
        const std::string name = "_GTK_FRAME_EXTENTS";
        const ReplyPointer<xcb_intern_atom_reply_t> atom(xcb_intern_atom_reply(connection_,
            xcb_intern_atom(connection_, 0, static_cast<std::uint16_t>(name.size()), name.data()), nullptr));
        if (atom)
            frameExtents_ = atom->atom;
        xcb_flush(connection_);
    }
    ~Screen() { xcb_disconnect(connection_); }
    Screen(const Screen &) = delete;
    Screen &operator=(const Screen &) = delete;

    int descriptor() const { return xcb_get_file_descriptor(connection_); }
    bool hasWindow() const { return window_ != XCB_WINDOW_NONE; }
    Clock::time_point mappedAt() const { return mappedAt_; }
    std::optional<Clock::time_point> paintedAt() const { return paintedAt_; }

    /// Requests reports of all drawing on the screen.
    void watchFor(std::vector<ExpectedColor> colors) {
        colors_ = std::move(colors);
        reportDrawingIn(root_);
    }

    void handleEvents() {
        // The answers of the X server bring events with them, which no descriptor announces again.
        do {
            if (awaitsColors() && showsColors())
                paintedAt_ = Clock::now();
        } while (handleWaitingEvents());
    }

private:
    bool awaitsColors() const { return hasWindow() && !paintedAt_ && !colors_.empty(); }

    void reportDrawingIn(xcb_window_t window) {
        if (!reported_.insert(window).second)
            return;
        xcb_damage_create(
            connection_, xcb_generate_id(connection_), window, XCB_DAMAGE_REPORT_LEVEL_RAW_RECTANGLES);
        xcb_flush(connection_);
    }

    bool handleWaitingEvents() {
        bool came = false;
        while (const ReplyPointer<xcb_generic_event_t> event { xcb_poll_for_event(connection_) }) {
            came = true;
            handle(*event);
        }
        return came;
    }

    void handle(const xcb_generic_event_t &event) {
        switch (event.response_type & 0x7f) {
        case XCB_CREATE_NOTIFY: {
            const auto &created = reinterpret_cast<const xcb_create_notify_event_t &>(event);
            geometries_[created.window] = { created.x, created.y, created.width, created.height };
            break;
        }
        case XCB_CONFIGURE_NOTIFY: {
            const auto &configured = reinterpret_cast<const xcb_configure_notify_event_t &>(event);
            geometries_[configured.window]
                = { configured.x, configured.y, configured.width, configured.height };
            break;
        }
        case XCB_MAP_NOTIFY:
            mapped(reinterpret_cast<const xcb_map_notify_event_t &>(event).window);
            break;
        case XCB_UNMAP_NOTIFY:
            if (reinterpret_cast<const xcb_unmap_notify_event_t &>(event).window == window_)
                window_ = XCB_WINDOW_NONE;
            break;
        default:
            break;
        }
    }

    void mapped(xcb_window_t window) {
        const auto &geometry = geometries_[window];
        if (hasWindow() || geometry.width < smallestWidth || geometry.height < smallestHeight)
            return;
        window_ = window;
        if (!colors_.empty())
            reportDrawingIn(window); // not all of it is reported for the screen
        mappedAt_ = Clock::now();
        paintedAt_.reset();
    }

    /// The margin of a shadow around the window: left, top, both sides, top and bottom. Of the window itself
    /// or of the one that a window manager has put into its frame.
    Geometry marginOf(xcb_window_t top) const {
        const ReplyPointer<xcb_query_tree_reply_t> tree(
            xcb_query_tree_reply(connection_, xcb_query_tree(connection_, top), nullptr));
        std::vector<xcb_window_t> windows { top };
        if (tree)
            windows.insert(windows.end(), xcb_query_tree_children(tree.get()),
                xcb_query_tree_children(tree.get()) + xcb_query_tree_children_length(tree.get()));
        for (const auto window : windows) {
            const ReplyPointer<xcb_get_property_reply_t> property(xcb_get_property_reply(connection_,
                xcb_get_property(connection_, 0, window, frameExtents_, XCB_ATOM_CARDINAL, 0, 4), nullptr));
            if (!property || xcb_get_property_value_length(property.get()) != 16)
                continue;
            const auto *extents = static_cast<const std::uint32_t *>(xcb_get_property_value(property.get()));
            const auto left = static_cast<int>(extents[0]);
            const auto upper = static_cast<int>(extents[2]);
            return { left, upper, left + static_cast<int>(extents[1]), upper + static_cast<int>(extents[3]) };
        }
        return {};
    }

    bool showsColors() {
        const auto &geometry = geometries_.at(window_);
        const auto margin = margin_ ? *margin_ : marginOf(window_);
        const auto inside = [](int position, int size, int before, int both) {
            return before + (position < 0 ? size - both + position : position);
        };
        for (const auto &expected : colors_) {
            const int x = geometry.x + inside(expected.x, geometry.width, margin.x, margin.width);
            const int y = geometry.y + inside(expected.y, geometry.height, margin.y, margin.height);
            if (colorAt(x, y) != expected.color)
                return false;
        }
        margin_ = margin;
        return true;
    }

    std::optional<std::uint32_t> colorAt(int x, int y) const {
        const ReplyPointer<xcb_get_image_reply_t> image(xcb_get_image_reply(connection_,
            xcb_get_image(connection_, XCB_IMAGE_FORMAT_Z_PIXMAP, root_, static_cast<std::int16_t>(x),
                static_cast<std::int16_t>(y), 1, 1, ~0U),
            nullptr));
        if (!image || xcb_get_image_data_length(image.get()) < 4)
            return std::nullopt;
        const auto *bytes = xcb_get_image_data(image.get());
        return static_cast<std::uint32_t>(bytes[2] << 16 | bytes[1] << 8 | bytes[0]);
    }

    xcb_connection_t *connection_;
    xcb_window_t root_ = XCB_WINDOW_NONE;
    xcb_atom_t frameExtents_ = XCB_ATOM_NONE;
    std::optional<Geometry> margin_; ///< known as soon as a notice was right
    std::map<xcb_window_t, Geometry> geometries_;
    std::set<xcb_window_t> reported_;
    std::vector<ExpectedColor> colors_;
    xcb_window_t window_ = XCB_WINDOW_NONE;
    Clock::time_point mappedAt_;
    std::optional<Clock::time_point> paintedAt_;
};

/// Who owns a name on the session bus.
class Bus {
public:
    explicit Bus(const std::string &name)
        : connection_(dbus_bus_get(DBUS_BUS_SESSION, nullptr)) {
        if (!connection_)
            throw Failure("there is no session bus");
        const auto rule = "type='signal',sender='" DBUS_SERVICE_DBUS "',interface='" DBUS_INTERFACE_DBUS
                          "',member='NameOwnerChanged',arg0='"
            + name + '\'';
        DBusError error = DBUS_ERROR_INIT;
        dbus_bus_add_match(connection_, rule.c_str(), &error);
        if (dbus_bus_name_has_owner(connection_, name.c_str(), nullptr))
            throw Failure(name + " is owned already");
    }

    int descriptor() const {
        int descriptor = -1;
        dbus_connection_get_unix_fd(connection_, &descriptor);
        return descriptor;
    }

    std::optional<Clock::time_point> ownedAt() const { return ownedAt_; }

    void handleEvents() {
        dbus_connection_read_write(connection_, 0);
        while (const Messages::Message message { dbus_connection_pop_message(connection_) }) {
            if (!ownedAt_ && dbus_message_is_signal(message.get(), DBUS_INTERFACE_DBUS, "NameOwnerChanged"))
                ownedAt_ = Clock::now();
        }
    }

    void post(const std::string &name) {
        const auto message = Messages::named(name);
        if (!message)
            throw Failure("there is no message " + name);
        dbus_connection_send(connection_, message.get(), nullptr);
        dbus_connection_flush(connection_);
    }

private:
    DBusConnection *connection_;
    std::optional<Clock::time_point> ownedAt_;
};

/// The program that is watched; ended with this.
class Program {
public:
    explicit Program(std::vector<std::string> command) {
        std::vector<char *> arguments;
        for (auto &word : command)
            arguments.push_back(word.data());
        arguments.push_back(nullptr);
        // What it prints is not to stand between the figures.
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
        posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
        startedAt_ = Clock::now();
        const int error = posix_spawnp(&process_, arguments[0], &actions, nullptr, arguments.data(), environ);
        posix_spawn_file_actions_destroy(&actions);
        if (error != 0)
            throw Failure("cannot start " + command[0]);
    }
    ~Program() {
        kill(process_, SIGTERM);
        for (int attempt = 0; attempt < 100; ++attempt) {
            if (waitpid(process_, nullptr, WNOHANG) != 0)
                return;
            std::this_thread::sleep_for(10ms);
        }
        kill(process_, SIGKILL);
        waitpid(process_, nullptr, 0);
    }
    Program(const Program &) = delete;
    Program &operator=(const Program &) = delete;

    Clock::time_point startedAt() const { return startedAt_; }

    long proportionalMemory() const {
        std::ifstream rollup("/proc/" + std::to_string(process_) + "/smaps_rollup");
        for (std::string line; std::getline(rollup, line);) {
            if (line.starts_with("Pss:"))
                return std::stol(line.substr(4));
        }
        throw Failure("the program has ended");
    }

    /// Of its main thread, which does all the work of a message.
    std::chrono::nanoseconds processorTime() const {
        long long nanoseconds = 0;
        std::ifstream("/proc/" + std::to_string(process_) + "/schedstat") >> nanoseconds;
        return std::chrono::nanoseconds(nanoseconds);
    }

private:
    pid_t process_ = 0;
    Clock::time_point startedAt_;
};

struct Options {
    std::string name;
    std::string messageAtName;
    bool window = false;
    int rounds = 0;
    std::string post;
    std::string hide;
    std::vector<ExpectedColor> colors;
    std::chrono::milliseconds pause { 500 };
    bool memory = false;
    std::vector<std::string> command;
};

ExpectedColor expectedColor(const std::string &text) {
    ExpectedColor expected {};
    if (std::sscanf(text.c_str(), "%d,%d,%x", &expected.x, &expected.y, &expected.color) != 3)
        throw Failure("--pixel takes X,Y,RRGGBB");
    return expected;
}

Options parse(const std::vector<std::string> &words) {
    Options options;
    std::size_t index = 0;
    const auto next = [&words, &index] {
        if (++index == words.size())
            throw Failure(words[index - 1] + " wants a value");
        return words[index];
    };
    const std::map<std::string, std::function<void()>> readers {
        { "--name", [&] { options.name = next(); } },
        { "--post-at-name", [&] { options.messageAtName = next(); } },
        { "--window", [&] { options.window = true; } },
        { "--rounds", [&] { options.rounds = std::stoi(next()); } },
        { "--post", [&] { options.post = next(); } },
        { "--hide", [&] { options.hide = next(); } },
        { "--pixel", [&] { options.colors.push_back(expectedColor(next())); } },
        { "--pause", [&] { options.pause = std::chrono::milliseconds(int(std::stod(next()) * 1000)); } },
        { "--memory", [&] { options.memory = true; } },
    };
    for (; index < words.size() && words[index] != "--"; ++index) {
        const auto reader = readers.find(words[index]);
        if (reader == readers.end())
            throw Failure("there is no option " + words[index]);
        reader->second();
    }
    if (index + 1 >= words.size())
        throw Failure("no command is given");
    options.command.assign(words.begin() + static_cast<std::ptrdiff_t>(index) + 1, words.end());
    return options;
}

class Observer {
public:
    explicit Observer(Options options)
        : options_(std::move(options)) {
        if (!options_.name.empty())
            bus_.emplace(options_.name);
        if (!options_.colors.empty())
            screen_.watchFor(options_.colors);
    }

    void run() {
        const Program program(options_.command);
        if (bus_) {
            wait("the name", [this] { return bus_->ownedAt().has_value(); });
            print("exec_to_name", milliseconds(*bus_->ownedAt() - program.startedAt()));
        }
        if (!options_.messageAtName.empty())
            bus_->post(options_.messageAtName);
        if (options_.window) {
            wait("the window", [this] { return screen_.hasWindow(); });
            print("exec_to_mapped", milliseconds(screen_.mappedAt() - program.startedAt()));
        }
        for (int round = 0; round < options_.rounds; ++round)
            postOnce(program);
        if (options_.rounds > 0) {
            print("pixel", '[' + pixel_ + ']');
            print("processor", '[' + processor_ + ']');
        }
        if (options_.memory) {
            std::this_thread::sleep_for(options_.pause);
            print("pss", static_cast<double>(program.proportionalMemory()));
        }
        std::cout << '{' << figures_ << '}' << std::endl;
    }

private:
    void postOnce(const Program &program) {
        std::this_thread::sleep_for(options_.pause);
        const auto usedBefore = program.processorTime();
        const auto postedAt = Clock::now();
        bus_->post(options_.post);
        wait("the colours", [this] { return screen_.hasWindow() && screen_.paintedAt(); });
        const auto append = [](std::string &list, Clock::duration duration) {
            list += (list.empty() ? "" : ", ") + std::to_string(milliseconds(duration));
        };
        append(pixel_, *screen_.paintedAt() - postedAt);
        append(processor_, program.processorTime() - usedBefore);
        std::this_thread::sleep_for(options_.pause);
        bus_->post(options_.hide);
        wait("the window's going", [this] { return !screen_.hasWindow(); });
    }

    void wait(const char *what, const std::function<bool()> &isDone) {
        const auto deadline = Clock::now() + longestWait;
        for (;;) {
            screen_.handleEvents();
            if (bus_)
                bus_->handleEvents();
            if (isDone())
                return;
            if (Clock::now() >= deadline)
                throw Failure(std::string(what) + " did not come");
            std::array descriptors { pollfd { screen_.descriptor(), POLLIN, 0 },
                pollfd { bus_ ? bus_->descriptor() : -1, POLLIN, 0 } };
            poll(descriptors.data(), descriptors.size(), 100);
        }
    }

    void print(const std::string &figure, const std::string &value) {
        figures_ += (figures_.empty() ? "\"" : ", \"") + figure + "\": " + value;
    }
    void print(const std::string &figure, double value) { print(figure, std::to_string(value)); }

    Options options_;
    Screen screen_;
    std::optional<Bus> bus_;
    std::string figures_;
    std::string pixel_;
    std::string processor_;
};

} // namespace

int main(int argumentCount, char **arguments) {
    try {
        Observer(parse({ arguments + 1, arguments + argumentCount })).run();
        return EXIT_SUCCESS;
    } catch (const std::exception &failure) {
        std::cerr << "Observer: " << failure.what() << '\n';
        return EXIT_FAILURE;
    }
}
