// The web dialog runner driven over HTTP the way the page drives it, on a dialog built here with
// a user control whose click function tracks the mouse as the plug-in's preview does.
#include <gtest/gtest.h>
#include <httplib.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include <nlohmann/json.hpp>

#include "dialog_test_support.h"
#include "host/dialog_runner.h"
#include "host/web_dialog_runner.h"

namespace vellux::host {
namespace {

using json = nlohmann::json;

constexpr int kCheckBox = 5;
constexpr int kEdit = 4;
constexpr int kPopup = 6;
constexpr int kColor = 7;
constexpr int kPreview = 8;
constexpr int kNote = 9;
constexpr int kDisabled = 10;
constexpr int kDefaults = 11;
constexpr KV_Rect kPreviewBounds{10, 10, 110, 70};

using dialog_test::Item;

DialogTemplate TestTemplate() {
    DialogTemplate layout;
    layout.width = 400;
    layout.height = 300;
    layout.title = "Test settings";
    layout.items = {
        Item(1, cKV_PushButton, {300, 260, 380, 284}, "OK"),
        Item(2, cKV_PushButton, {210, 260, 290, 284}, "Cancel"),
        Item(3, cKV_StaticText, {120, 10, 200, 30}, "Intensity", 0, kEdit),
        Item(kEdit, cKV_EditText, {200, 10, 260, 30}, "0.5"),
        Item(kCheckBox, cKV_CheckBox, {120, 40, 260, 60}, "Halo"),
        Item(kPopup, cKV_PopupMenu, {120, 70, 260, 90}, "Star filter"),
        Item(kColor, cKV_ColorButton, {120, 100, 160, 120}, "Colour"),
        Item(kPreview, cKV_UserControl, kPreviewBounds),
        Item(kNote, cKV_StaticText, {10, 200, 200, 220}, "A note"),
        Item(kDisabled, cKV_CheckBox, {10, 230, 200, 250}, "Locked"),
        Item(kDefaults, cKV_PushButton, {10, 260, 90, 284}, "Defaults"),
    };
    // Item 1 reads "4" but is worth 1: a pop-up is edited by value, never by a text that happens
    // to look like another item's value.
    layout.items[5].menu = {{0, "None"}, {1, "4"}, {4, "Four"}};
    return layout;
}

// What the dialog's callbacks saw; they are plain functions, so they reach the test through this.
struct Seen {
    Dialog* dialog = nullptr;
    std::vector<int> hits;
    std::vector<std::tuple<int, int, bool>> tracked;   // x, y, button down
    int lightX = -1;
    int lightY = -1;
};
Seen gSeen;

Control& ControlBehind(const KV_Control* handle) {
    for (Control& control : gSeen.dialog->controls)
        if (&control.handle == handle) return control;
    throw std::logic_error("a handle of another dialog");
}

void OnHit(KV_Control* handle, KV_DrawContext*) { gSeen.hits.push_back(ControlBehind(handle).id()); }

// Dark, with the pixel under the light white.
void OnDraw(const KV_Control* handle, KV_DrawContext*) {
    Control& control = ControlBehind(handle);
    Canvas& canvas = gSeen.dialog->canvas;
    const KV_Rect& b = control.item.bounds;
    for (int y = b.top; y < b.bottom; ++y) {
        for (int x = b.left; x < b.right; ++x) {
            const uint8_t level = x == gSeen.lightX && y == gSeen.lightY ? 255 : 20;
            uint8_t* pixel = canvas.Pixel(x, y);
            pixel[0] = pixel[1] = pixel[2] = level;
            pixel[3] = 255;
        }
    }
    ++canvas.version;
}

// As the plug-in's preview: follow the mouse, redrawing at every position, until it is released.
int OnClick(KV_Control* handle, KV_DrawContext*, int, int h, int v) {
    Control& control = ControlBehind(handle);
    int x = h, y = v;
    while (true) {
        const bool down = CurrentDialogRunner()->TrackMouse(control, &x, &y);
        gSeen.tracked.emplace_back(x, y, down);
        gSeen.lightX = x;
        gSeen.lightY = y;
        control.needsDraw = true;
        RedrawControls(*control.dialog);
        if (!down) return 1;
    }
}

struct Answer {
    int status = 0;
    json body;
    std::string raw;
    httplib::Headers headers;
};

// The page's side: a client for the address the runner reports.
class Page {
public:
    explicit Page(const std::string& address) {
        const std::string rest = address.substr(std::string("http://127.0.0.1:").size());
        port = std::stoi(rest.substr(0, rest.find('/')));
        token = rest.substr(rest.find('/') + 1);
        token.pop_back();   // the trailing slash
        root = "/" + token;
    }

    Answer Get(const std::string& path, const httplib::Headers& headers = {}) const {
        httplib::Client client("127.0.0.1", port);
        return Read(client.Get(path.c_str(), headers));
    }
    Answer Post(const std::string& path, const std::string& body, const std::string& type = "application/json",
                const httplib::Headers& headers = {}) const {
        httplib::Client client("127.0.0.1", port);
        return Read(client.Post(path.c_str(), headers, body, type.c_str()));
    }
    Answer Api(const std::string& name, const json& body) const { return Post(root + "/api/" + name, body.dump()); }
    Answer State() const { return Get(root + "/api/state"); }
    Answer Mouse(const char* event, int x, int y) const {
        return Api("mouse", {{"id", kPreview}, {"event", event}, {"x", x}, {"y", y}});
    }
    Answer Edit(int id, const json& value) const { return Api("edit", {{"id", id}, {"value", value}}); }

    int port = 0;
    std::string token;
    std::string root;

private:
    static Answer Read(const httplib::Result& result) {
        if (!result) return {};
        Answer answer{result->status, json::parse(result->body, nullptr, false), result->body, result->headers};
        return answer;
    }
};

const json* ControlIn(const json& state, int id) {
    for (const json& control : state["controls"])
        if (control["id"] == id) return &control;
    return nullptr;
}

// The test dialog with its callbacks, drawn, as KV_ExecuteDialog hands a dialog to the runner.
void Prepare(Dialog& dialog) {
    gSeen.dialog = &dialog;
    BuildDialog(dialog, 16001, TestTemplate());
    for (Control& control : dialog.controls) control.hit = OnHit;
    FindControl(dialog, kPreview)->draw = OnDraw;
    FindControl(dialog, kPreview)->click = OnClick;
    FindControl(dialog, kDisabled)->enabled = false;
    dialog.keyControl = FindControl(dialog, kEdit);
    RedrawControls(dialog, true);
}

class WebDialogRunnerTest : public testing::Test {
protected:
    void SetUp() override {
        gSeen = Seen{};
        Prepare(dialog_);
    }

    // Runs the dialog while `script` plays the page on another thread; a script that leaves the
    // dialog open has it cancelled, and a stuck one is interrupted after a while.
    bool RunPage(const std::function<void(const Page&)>& script, WebDialogOptions options = {}) {
        std::thread page;
        std::atomic<bool> finished{false};
        const auto started = std::chrono::steady_clock::now();
        options.ready = [&](const std::string& address) {
            address_ = address;
            page = std::thread([&, address] {
                const Page client(address);
                script(client);
                client.Api("close", {{"accept", false}});
                finished = true;
            });
        };
        auto interrupted = options.interrupted;
        options.interrupted = [&, interrupted] {
            return (interrupted && interrupted()) || std::chrono::steady_clock::now() - started > std::chrono::seconds(60);
        };
        WebDialogRunner runner(options);
        ScopedDialogRunner installed(runner);
        bool accepted = false;
        try {
            accepted = runner.Run(dialog_);
        } catch (...) {
            if (page.joinable()) page.join();
            throw;
        }
        if (page.joinable()) page.join();
        EXPECT_TRUE(finished.load());
        return accepted;
    }

    Dialog dialog_;
    std::string address_;
};

// ---- Serving: the page, the token, the Host header ----

TEST_F(WebDialogRunnerTest, ServesThePageOnlyUnderItsTokenAndHost) {
    RunPage([](const Page& page) {
        EXPECT_EQ(page.token.size(), 32u);   // 128 bits in hex
        EXPECT_EQ(page.token.find_first_not_of("0123456789abcdef"), std::string::npos);

        const Answer html = page.Get(page.root + "/");
        EXPECT_EQ(html.status, 200);
        EXPECT_EQ(html.headers.find("Content-Type")->second, "text/html; charset=utf-8");
        EXPECT_NE(html.raw.find("dialog.js"), std::string::npos);
        EXPECT_EQ(page.Get(page.root + "/dialog.js").headers.find("Content-Type")->second, "text/javascript; charset=utf-8");
        EXPECT_EQ(page.Get(page.root + "/dialog.css").status, 200);
        const Answer bare = page.Get(page.root);
        EXPECT_EQ(bare.status, 302);
        EXPECT_EQ(bare.headers.find("Location")->second, page.root + "/");

        // Nothing else, with or without the token.
        for (const std::string& path : {page.root + "/other.js", page.root + "/../dialog.js", page.root + "/api/canvas/x",
                                        page.root + "x/api/state", std::string("/api/state"), std::string("/"),
                                        "/" + std::string(page.token.rbegin(), page.token.rend()) + "/api/state"}) {
            const Answer answer = page.Get(path);
            EXPECT_EQ(answer.status, 404) << path;
            EXPECT_TRUE(answer.body.contains("error")) << path;
        }

        // Another Host (DNS rebinding, another port) is refused even with the token.
        const std::string state = page.root + "/api/state";
        for (const std::string& host : {"localhost:" + std::to_string(page.port), "127.0.0.1:" + std::to_string(page.port + 1),
                                       std::string("127.0.0.1"), std::string("attacker.example")}) {
            EXPECT_EQ(page.Get(state, {{"Host", host}}).status, 403) << host;
            EXPECT_EQ(page.Post(page.root + "/api/edit", json{{"id", kCheckBox}, {"value", true}}.dump(), "application/json",
                                {{"Host", host}}).status, 403);
        }

        const Answer ok = page.State();
        EXPECT_EQ(ok.status, 200);
        EXPECT_EQ(ok.headers.count("Access-Control-Allow-Origin"), 0u);
        EXPECT_EQ(ok.headers.find("X-Content-Type-Options")->second, "nosniff");
        EXPECT_NE(ok.headers.find("Content-Security-Policy")->second.find("frame-ancestors 'none'"), std::string::npos);
    });
    EXPECT_TRUE(gSeen.hits.empty());
    EXPECT_EQ(FindControl(dialog_, kCheckBox)->value, 0);
}

TEST_F(WebDialogRunnerTest, StateDescribesEveryControl) {
    WebDialogOptions options;
    options.settings = {{kEdit, {"flare-intensity"}}, {kCheckBox, {"wireframe-preview", true}}};
    RunPage([](const Page& page) {
        const json state = page.State().body;
        EXPECT_EQ(state["title"], "Test settings");
        EXPECT_EQ(state["width"], 400);
        EXPECT_EQ(state["focus"], kEdit);
        EXPECT_EQ(state["closed"], false);
        ASSERT_EQ(state["controls"].size(), 11u);
        const json& edit = *ControlIn(state, kEdit);
        EXPECT_EQ(edit["type"], int(cKV_EditText));
        EXPECT_EQ(edit["label"], "Intensity");
        EXPECT_EQ(edit["text"], "0.5");
        EXPECT_EQ(edit["bounds"], json({{"left", 200}, {"top", 10}, {"right", 260}, {"bottom", 30}}));
        EXPECT_EQ((*ControlIn(state, 3))["labelFor"], kEdit);
        EXPECT_EQ((*ControlIn(state, kPopup))["menu"][2], json({{"value", 4}, {"text", "Four"}}));
        EXPECT_EQ((*ControlIn(state, kColor))["color"], "#000000");
        EXPECT_EQ((*ControlIn(state, kDisabled))["enabled"], false);
        EXPECT_EQ(edit["setting"], "flare-intensity");   // the setting it edits, by its name
        EXPECT_FALSE(edit.contains("settingInverted"));
        EXPECT_EQ((*ControlIn(state, kCheckBox))["setting"], "wireframe-preview");
        EXPECT_EQ((*ControlIn(state, kCheckBox))["settingInverted"], true);
        EXPECT_FALSE(ControlIn(state, kPopup)->contains("setting"));

        const Answer canvas = page.Get(page.root + "/api/canvas/" + std::to_string(kPreview));
        EXPECT_EQ(canvas.status, 200);
        EXPECT_EQ(canvas.headers.find("Content-Type")->second, "application/octet-stream");
        EXPECT_EQ(canvas.headers.find("X-Canvas-Width")->second, "100");
        EXPECT_EQ(canvas.headers.find("X-Canvas-Height")->second, "60");
        EXPECT_EQ(canvas.headers.find("X-Canvas-Version")->second, state["canvasVersion"].dump());
        EXPECT_EQ(canvas.raw.size(), 100u * 60u * 4u);
        EXPECT_EQ(uint8_t(canvas.raw[0]), 20);   // what the draw function painted
        EXPECT_EQ(page.Get(page.root + "/api/canvas/" + std::to_string(kCheckBox)).status, 404);
        EXPECT_EQ(page.Get(page.root + "/api/canvas/999").status, 404);
    }, options);
}

// ---- Edits ----

TEST_F(WebDialogRunnerTest, EditsSetTheControlFireItsHitAndReplyTheNewState) {
    RunPage([](const Page& page) {
        Answer answer = page.Edit(kCheckBox, true);
        EXPECT_EQ(answer.status, 200);
        EXPECT_EQ((*ControlIn(answer.body, kCheckBox))["value"], 1);

        answer = page.Edit(kEdit, "0.75");
        EXPECT_EQ((*ControlIn(answer.body, kEdit))["text"], "0.75");

        answer = page.Edit(kPopup, 4);
        EXPECT_EQ((*ControlIn(answer.body, kPopup))["value"], 4);
        answer = page.Edit(kPopup, 1);
        EXPECT_EQ((*ControlIn(answer.body, kPopup))["value"], 1);

        answer = page.Edit(kColor, "#ff8000");
        EXPECT_EQ((*ControlIn(answer.body, kColor))["color"], "#FF8000");

        answer = page.Api("press", {{"id", kDefaults}});
        EXPECT_EQ(answer.status, 200);
        EXPECT_EQ(answer.body["closed"], false);
    });
    EXPECT_EQ(gSeen.hits, (std::vector<int>{kCheckBox, kEdit, kPopup, kPopup, kColor, kDefaults}));
    EXPECT_EQ(FindControl(dialog_, kEdit)->text, "0.75");
}

TEST_F(WebDialogRunnerTest, BadRequestsGetAnErrorAndChangeNothing) {
    json before;
    RunPage([&before](const Page& page) {
        before = page.State().body;
        const std::string edit = page.root + "/api/edit";
        const struct {
            std::string path, body, type;
            int status;
        } cases[] = {
            {edit, "{\"id\": 5, \"value\": tru", "application/json", 400},
            {edit, "[5, true]", "application/json", 400},
            {edit, "{\"value\": true}", "application/json", 400},
            {edit, "{\"id\": \"5\", \"value\": true}", "application/json", 400},
            {edit, "{\"id\": 5}", "application/json", 400},
            {edit, "{\"id\": 5, \"value\": true}", "text/plain", 415},
            {edit, "{\"id\": 5, \"value\": \"" + std::string(70000, 'x') + "\"}", "application/json", 413},
            {edit, "{\"id\": 99, \"value\": true}", "application/json", 404},
            {edit, "{\"id\": 123456789012, \"value\": true}", "application/json", 404},
            {edit, "{\"id\": 5, \"value\": 1}", "application/json", 400},            // check box: a boolean
            {edit, "{\"id\": 4, \"value\": 0.75}", "application/json", 400},         // edit text: a string
            {edit, "{\"id\": 4, \"value\": \"" + std::string(300, '7') + "\"}", "application/json", 400},
            {edit, "{\"id\": 6, \"value\": \"Four\"}", "application/json", 400},     // pop-up: a value
            {edit, "{\"id\": 6, \"value\": 5}", "application/json", 400},
            {edit, "{\"id\": 7, \"value\": \"orange\"}", "application/json", 400},
            {edit, "{\"id\": 9, \"value\": \"text\"}", "application/json", 400},     // static text
            {edit, "{\"id\": 8, \"value\": 1}", "application/json", 400},            // user control
            {edit, "{\"id\": 10, \"value\": true}", "application/json", 409},        // disabled
            {page.root + "/api/press", "{\"id\": 5}", "application/json", 400},
            {page.root + "/api/press", "{\"id\": 98}", "application/json", 404},
            {page.root + "/api/mouse", "{\"id\": 8, \"event\": \"click\", \"x\": 20, \"y\": 20}", "application/json", 400},
            {page.root + "/api/mouse", "{\"id\": 8, \"event\": \"down\", \"x\": 1e9, \"y\": 20}", "application/json", 400},
            {page.root + "/api/mouse", "{\"id\": 8, \"event\": \"down\", \"y\": 20}", "application/json", 400},
            {page.root + "/api/mouse", "{\"id\": 8, \"event\": \"down\", \"x\": 5, \"y\": 20}", "application/json", 400},
            {page.root + "/api/mouse", "{\"id\": 5, \"event\": \"down\", \"x\": 130, \"y\": 50}", "application/json", 400},
            {page.root + "/api/mouse", "{\"id\": 97, \"event\": \"down\", \"x\": 20, \"y\": 20}", "application/json", 404},
            {page.root + "/api/close", "{\"accept\": \"yes\"}", "application/json", 400},
            {page.root + "/api/close", "{}", "application/json", 400},
            {page.root + "/api/look", "{\"name\": 5}", "application/json", 400},
            {page.root + "/api/look", "{\"name\": \"Vellux\"}", "application/json", 404},   // none offered
        };
        for (const auto& c : cases) {
            const Answer answer = page.Post(c.path, c.body, c.type);
            EXPECT_EQ(answer.status, c.status) << c.path << " " << c.body.substr(0, 80);
            EXPECT_TRUE(answer.body.is_object() && answer.body["error"].is_string()) << c.body.substr(0, 80);
        }
        EXPECT_EQ(page.Get(page.root + "/api/looks").status, 404);
        EXPECT_EQ(page.State().body, before);
    });
    EXPECT_TRUE(gSeen.hits.empty());
    EXPECT_TRUE(gSeen.tracked.empty());
}

// ---- Dragging in a user control ----

TEST_F(WebDialogRunnerTest, DragReportsEveryStepDrawnAndEndsOnUp) {
    RunPage([](const Page& page) {
        uint64_t version = page.State().body["canvasVersion"];
        const std::tuple<const char*, int, int> steps[] = {{"down", 20, 20}, {"move", 30, 25}, {"move", 40, 30}, {"up", 45, 35}};
        for (const auto& [event, x, y] : steps) {
            const Answer answer = page.Mouse(event, x, y);
            ASSERT_EQ(answer.status, 200) << event;
            // The reply comes once the plug-in drew this step.
            EXPECT_GT(answer.body["canvasVersion"].get<uint64_t>(), version) << event << " " << x;
            version = answer.body["canvasVersion"];
            if (std::string(event) == "move" && x == 30) {
                // Reading in the middle of a drag does not end it; the canvas shows the light there.
                const Answer canvas = page.Get(page.root + "/api/canvas/" + std::to_string(kPreview));
                const size_t at = (size_t(25 - kPreviewBounds.top) * 100 + size_t(30 - kPreviewBounds.left)) * 4;
                EXPECT_EQ(uint8_t(canvas.raw.at(at)), 255);
                EXPECT_EQ(page.State().status, 200);
            }
        }
        // A move after the release moves nothing.
        EXPECT_EQ(page.Mouse("move", 50, 50).status, 200);
    });
    using Step = std::tuple<int, int, bool>;
    EXPECT_EQ(gSeen.tracked, (std::vector<Step>{{20, 20, true}, {30, 25, true}, {40, 30, true}, {45, 35, false}}));
}

TEST_F(WebDialogRunnerTest, AnEditOrSilenceEndsADragAsARelease) {
    WebDialogOptions options;
    options.dragTimeout = std::chrono::milliseconds(300);
    RunPage(
        [](const Page& page) {
            EXPECT_EQ(page.Mouse("down", 20, 20).status, 200);
            const Answer edit = page.Edit(kCheckBox, true);   // handled once the drag ended
            EXPECT_EQ((*ControlIn(edit.body, kCheckBox))["value"], 1);

            EXPECT_EQ(page.Mouse("down", 60, 40).status, 200);
            std::this_thread::sleep_for(std::chrono::milliseconds(600));
            EXPECT_EQ(page.Mouse("move", 70, 45).status, 200);
        },
        options);
    using Step = std::tuple<int, int, bool>;
    EXPECT_EQ(gSeen.tracked, (std::vector<Step>{{20, 20, true}, {20, 20, false}, {60, 40, true}, {60, 40, false}}));
    // Each click ends with the preview's own hit; the edit came between the two.
    EXPECT_EQ(gSeen.hits, (std::vector<int>{kPreview, kCheckBox, kPreview}));
}

// ---- Looks ----

class WebDialogLooksTest : public WebDialogRunnerTest {
protected:
    // A runner offering two looks, stopped after a minute whatever happens.
    WebDialogOptions LookOptions(std::promise<std::string>& address) {
        WebDialogOptions options;
        options.looks = {{"Plain", "the first", "Tables"}, {"Other", "the second", "From lenses"}};
        options.ready = [&address](const std::string& served) { address.set_value(served); };
        const auto started = std::chrono::steady_clock::now();
        options.interrupted = [started] { return std::chrono::steady_clock::now() - started > std::chrono::seconds(60); };
        return options;
    }
};

TEST_F(WebDialogLooksTest, APickEndsTheDialogAndTheNextOneServesThePageWithTheLightKept) {
    std::promise<std::string> address;
    WebDialogRunner runner(LookOptions(address));
    ScopedDialogRunner installed(runner);
    std::thread page([served = address.get_future().share()] {
        const Page client(served.get());
        const Answer looks = client.Get(client.root + "/api/looks");
        EXPECT_EQ(looks.body["current"], "Plain");
        EXPECT_EQ(looks.body["looks"][1], json({{"name", "Other"}, {"description", "the second"}, {"group", "From lenses"}}));
        EXPECT_EQ(client.Api("look", {{"name", "Elsewhere"}}).status, 400);
        const Answer same = client.Api("look", {{"name", "Plain"}});   // shown already: nothing to do
        EXPECT_EQ(same.body["dialog"], 1);
        EXPECT_EQ(same.body["look"], "Plain");
        client.Mouse("down", 30, 20);
        client.Mouse("move", 40, 30);
        const uint64_t before = client.Mouse("up", 40, 30).body["canvasVersion"];

        // Answered by the next dialog, once drawn: the light where it was left.
        const Answer picked = client.Api("look", {{"name", "Other"}});
        ASSERT_EQ(picked.status, 200);
        EXPECT_EQ(picked.body["dialog"], 2);
        EXPECT_EQ(picked.body["look"], "Other");
        EXPECT_EQ(picked.body["closed"], false);
        EXPECT_GT(picked.body["canvasVersion"].get<uint64_t>(), before);
        const Answer canvas = client.Get(client.root + "/api/canvas/" + std::to_string(kPreview));
        EXPECT_EQ(uint8_t(canvas.raw.at((size_t(30 - kPreviewBounds.top) * 100 + size_t(40 - kPreviewBounds.left)) * 4)), 255);
        EXPECT_EQ(client.Get(client.root + "/api/looks").body["current"], "Other");
        EXPECT_EQ(client.Api("close", {{"accept", true}}).body["accepted"], true);
    });

    runner.ShowLook("Plain");
    EXPECT_TRUE(runner.Run(dialog_));   // accepted, so that the plug-in keeps the edits
    EXPECT_EQ(runner.PickedLook(), "Other");

    Dialog next;
    Prepare(next);
    gSeen.tracked.clear();
    runner.ShowLook("Other");
    EXPECT_TRUE(runner.Run(next));
    EXPECT_EQ(runner.PickedLook(), std::nullopt);
    page.join();
    using Step = std::tuple<int, int, bool>;
    EXPECT_EQ(gSeen.tracked, (std::vector<Step>{{40, 30, true}, {40, 30, false}}));   // a click where the drag ended
}

TEST_F(WebDialogLooksTest, APickWithoutANextDialogIsAnsweredGoneWhenTheRunnerEnds) {
    std::promise<std::string> address;
    int status = 0;
    std::thread page;
    {
        WebDialogRunner runner(LookOptions(address));
        ScopedDialogRunner installed(runner);
        page = std::thread([&status, served = address.get_future().share()] {
            status = Page(served.get()).Api("look", {{"name", "Other"}}).status;
        });
        runner.ShowLook("Plain");
        EXPECT_TRUE(runner.Run(dialog_));
        EXPECT_EQ(runner.PickedLook(), "Other");
    }
    page.join();
    EXPECT_EQ(status, 410);
}

// ---- Closing ----

TEST_F(WebDialogRunnerTest, OkAndCancelEndRunAndCloseThePort) {
    int port = 0;
    const bool accepted = RunPage([&port](const Page& page) {
        port = page.port;
        const Answer answer = page.Api("close", {{"accept", true}});
        EXPECT_EQ(answer.status, 200);
        EXPECT_EQ(answer.body["closed"], true);
        EXPECT_EQ(answer.body["accepted"], true);
    });
    EXPECT_TRUE(accepted);
    httplib::Client client("127.0.0.1", port);
    const httplib::Result after = client.Get("/");
    EXPECT_FALSE(after);
    EXPECT_EQ(after.error(), httplib::Error::Connection);

    EXPECT_FALSE(RunPage([](const Page& page) { page.Api("close", {{"accept", false}}); }));
    EXPECT_TRUE(RunPage([](const Page& page) { EXPECT_EQ(page.Api("press", {{"id", 1}}).body["accepted"], true); }));
    EXPECT_FALSE(RunPage([](const Page& page) { EXPECT_EQ(page.Api("press", {{"id", 2}}).body["closed"], true); }));
}

TEST_F(WebDialogRunnerTest, AnInterruptionCancels) {
    std::atomic<bool> stop{false};
    WebDialogOptions options;
    options.interrupted = [&stop] { return stop.load(); };
    const bool accepted = RunPage(
        [&stop](const Page& page) {
            EXPECT_EQ(page.Mouse("down", 20, 20).status, 200);   // even in the middle of a drag
            stop = true;
            std::this_thread::sleep_for(std::chrono::milliseconds(300));
            EXPECT_EQ(page.State().status, 0);   // nobody listens any more
        },
        options);
    EXPECT_FALSE(accepted);
    ASSERT_EQ(gSeen.tracked.size(), 2u);
    EXPECT_FALSE(std::get<2>(gSeen.tracked.back()));
}

TEST_F(WebDialogRunnerTest, ListensOnTheAskedPortAndRefusesABusyOne) {
    const int busy = socket(AF_INET, SOCK_STREAM, 0);
    ASSERT_GE(busy, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof(address);
    ASSERT_EQ(bind(busy, reinterpret_cast<sockaddr*>(&address), size), 0);
    ASSERT_EQ(listen(busy, 1), 0);
    ASSERT_EQ(getsockname(busy, reinterpret_cast<sockaddr*>(&address), &size), 0);
    const int taken = ntohs(address.sin_port);

    WebDialogOptions options;
    options.port = taken;
    bool shown = false;
    options.ready = [&shown](const std::string&) { shown = true; };
    WebDialogRunner runner(options);
    EXPECT_THROW(runner.Run(dialog_), std::runtime_error);
    EXPECT_FALSE(shown);

    close(busy);
    options.ready = nullptr;
    RunPage([taken](const Page& page) { EXPECT_EQ(page.port, taken); }, options);
}

}  // namespace
}  // namespace vellux::host
