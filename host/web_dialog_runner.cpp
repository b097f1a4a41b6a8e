#include "host/web_dialog_runner.h"

#include <httplib.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <condition_variable>
#include <cstdio>
#include <deque>
#include <future>
#include <mutex>
#include <optional>
#include <random>
#include <stdexcept>
#include <thread>
#include <utility>
#include <variant>

#include <nlohmann/json.hpp>

#include "host/web_assets_pvt.h"

namespace vellux::host {

namespace {

using json = nlohmann::json;
using Clock = std::chrono::steady_clock;

constexpr auto kPollInterval = std::chrono::milliseconds(100);
// Idle browser connections hold the server's threads this long; stopping waits for them.
constexpr time_t kKeepAliveSeconds = 1;
constexpr int kMostCoordinate = 32767;

// ---- Replies ----

struct Reply {
    int status = 200;
    std::string contentType = "application/json";
    std::string body;
    httplib::Headers headers;
};

std::string JsonText(const json& value) {
    // Titles come from the plug-in and its resources; bytes that are not UTF-8 must not fail the reply.
    return value.dump(-1, ' ', false, json::error_handler_t::replace);
}

Reply JsonReply(const json& value, int status = 200) { return {status, "application/json", JsonText(value), {}}; }
Reply ErrorReply(int status, const std::string& message) { return JsonReply({{"error", message}}, status); }

void Send(httplib::Response& response, const Reply& reply) {
    response.status = reply.status;
    for (const auto& [name, value] : reply.headers) response.set_header(name, value);
    response.set_content(reply.body, reply.contentType.c_str());
}

// ---- Requests, as the server's threads hand them to the dialog's thread ----

enum class RequestKind { State, Canvas, Edit, Press, Mouse, Close, Looks, Look };
enum class MouseKind { Down, Move, Up };

struct Request {
    RequestKind kind = RequestKind::State;
    int id = 0;                   // the control
    json value;                   // edit: the new value
    bool accept = false;          // close
    MouseKind mouse = MouseKind::Down;
    int x = 0;
    int y = 0;
    std::string look;             // look: the name picked
    std::promise<Reply> reply;
    bool answered = false;        // dialog thread only

    bool ReadsOnly() const {
        return kind == RequestKind::State || kind == RequestKind::Canvas || kind == RequestKind::Looks;
    }
};

using RequestPtr = std::shared_ptr<Request>;

void Answer(Request& request, Reply reply) {
    if (request.answered) return;
    request.answered = true;
    request.reply.set_value(std::move(reply));
}

// A control ID from JSON; IDs beyond any a resource can hold read as absent ones.
std::optional<int> ControlID(const json& body) {
    const auto found = body.find("id");
    if (found == body.end() || !found->is_number_integer()) return std::nullopt;
    const int64_t id = found->get<int64_t>();
    return id < -kMostCoordinate - 1 || id > kMostCoordinate ? -1 : int(id);
}

std::optional<int> Coordinate(const json& body, const char* name) {
    const auto found = body.find(name);
    if (found == body.end() || !found->is_number()) return std::nullopt;
    const double value = std::round(found->get<double>());
    if (!std::isfinite(value) || std::fabs(value) > kMostCoordinate) return std::nullopt;
    return int(value);
}

// The body of a POST as a JSON object, or the reply refusing it.
std::variant<json, Reply> JsonBody(const httplib::Request& request) {
    const std::string type = request.get_header_value("Content-Type");
    if (type.substr(0, type.find(';')) != "application/json") return ErrorReply(415, "the body must be application/json");
    json body = json::parse(request.body, nullptr, false);
    if (body.is_discarded()) return ErrorReply(400, "the body is not valid JSON");
    if (!body.is_object()) return ErrorReply(400, "the body must be a JSON object");
    return body;
}

// Parses what needs no dialog: the shape of each request. Errors about controls come later, on
// the dialog's thread.
std::variant<RequestPtr, Reply> ParsePost(RequestKind kind, const json& body) {
    auto request = std::make_shared<Request>();
    request->kind = kind;
    if (kind == RequestKind::Close) {
        const auto accept = body.find("accept");
        if (accept == body.end() || !accept->is_boolean()) return ErrorReply(400, "\"accept\" must be true or false");
        request->accept = accept->get<bool>();
        return request;
    }
    if (kind == RequestKind::Look) {
        const auto name = body.find("name");
        if (name == body.end() || !name->is_string()) return ErrorReply(400, "\"name\" must be a look's name");
        request->look = name->get<std::string>();
        return request;
    }
    const std::optional<int> id = ControlID(body);
    if (!id) return ErrorReply(400, "\"id\" must be a whole number");
    request->id = *id;
    if (kind == RequestKind::Edit) {
        const auto value = body.find("value");
        if (value == body.end()) return ErrorReply(400, "\"value\" is missing");
        request->value = *value;
    } else if (kind == RequestKind::Mouse) {
        const auto event = body.find("event");
        const std::string name = event != body.end() && event->is_string() ? event->get<std::string>() : "";
        if (name == "down") request->mouse = MouseKind::Down;
        else if (name == "move") request->mouse = MouseKind::Move;
        else if (name == "up") request->mouse = MouseKind::Up;
        else return ErrorReply(400, "\"event\" must be \"down\", \"move\" or \"up\"");
        const std::optional<int> x = Coordinate(body, "x");
        const std::optional<int> y = Coordinate(body, "y");
        if (!x || !y) return ErrorReply(400, "\"x\" and \"y\" must be numbers within the dialog's coordinate range");
        request->x = *x;
        request->y = *y;
    }
    return request;
}

std::string MakeToken() {
    std::random_device device;
    std::string token;
    for (int word = 0; word < 4; ++word) {   // 4 x 32 bits
        char hex[9];
        std::snprintf(hex, sizeof(hex), "%08x", unsigned(device()));
        token += hex;
    }
    return token;
}

const WebAsset* FindAsset(std::string_view name) {
    for (const WebAsset& asset : WebAssets())
        if (asset.name == name) return &asset;
    return nullptr;
}

bool Inside(const KV_Rect& rect, int x, int y) { return x >= rect.left && x < rect.right && y >= rect.top && y < rect.bottom; }

}  // namespace

// ---- Session: from the first Run until a Run ends without a look picked ----

class WebDialogRunner::Session {
public:
    explicit Session(const WebDialogOptions& options) : options_(options), token_(MakeToken()) {}
    ~Session() { Stop(); }

    // Serves `dialog` (listening first, the first time) and returns once it is closed, a look is
    // picked (taken with TakePicked) or the program is interrupted.
    bool Run(Dialog& dialog, const std::string& look);
    bool TrackMouse(Control& control, int* x, int* y);
    std::optional<std::string> TakePicked() { return std::exchange(picked_, std::nullopt); }

private:
    struct Drag {
        Control* control = nullptr;
        int x = 0;
        int y = 0;
        bool reportedClick = false;
        bool released = false;
    };
    struct Point {
        int id = 0;   // the user control
        int x = 0;
        int y = 0;
    };

    void Listen();
    void Route();
    void Stop();
    Reply Submit(RequestPtr request);
    RequestPtr Next(Clock::time_point deadline);
    void PutBack(RequestPtr request);
    bool Interrupted() const { return options_.interrupted && options_.interrupted(); }

    void Handle(const RequestPtr& request);
    json State() const;
    uint64_t CanvasVersion() const { return versionBase_ + dialog_->canvas.version; }
    Reply Canvas(int id) const;
    Reply Looks() const;
    void PickLook(const RequestPtr& request);
    void ReplayLastClick();
    Reply Edit(const Request& request);
    Reply Press(const Request& request);
    void Mouse(const RequestPtr& request);
    Reply Close(bool accept);
    // A control the page may act on, or the reply refusing it.
    std::variant<Control*, Reply> Target(int id, const char* action);

    Dialog* dialog_ = nullptr;       // while Run serves it
    const WebDialogOptions& options_;
    const std::string token_;
    std::string host_;               // "127.0.0.1:PORT", the only Host header served
    httplib::Server server_;
    std::thread listener_;
    std::atomic<bool> listenerEnded_{false};

    std::mutex mutex_;               // guards queue_ and closed_
    std::condition_variable wake_;
    std::deque<RequestPtr> queue_;
    bool closed_ = false;

    // The dialog's thread only.
    bool listening_ = false;
    bool done_ = false;
    bool accepted_ = false;
    std::optional<Drag> drag_;
    RequestPtr dragRequest_;         // the mouse request the drag answers at its next step
    std::string look_;               // the look the dialog shows
    std::optional<std::string> picked_;
    RequestPtr lookRequest_;         // the pick, answered once the next dialog is drawn
    std::optional<Point> lastClick_; // where the light was last put, for the next dialog
    int dialogs_ = 0;                // dialogs served
    uint64_t versionBase_ = 0;       // canvas versions of earlier dialogs, so versions only grow
};

void WebDialogRunner::Session::Listen() {
    server_.set_payload_max_length(kMaxBody);
    server_.set_keep_alive_timeout(kKeepAliveSeconds);
    server_.set_default_headers({
        {"Cache-Control", "no-store"},
        {"X-Content-Type-Options", "nosniff"},
        {"X-Frame-Options", "DENY"},
        {"Referrer-Policy", "no-referrer"},
        {"Content-Security-Policy", "default-src 'none'; script-src 'self'; style-src 'self'; connect-src 'self'; "
                                    "img-src 'self' data:; base-uri 'none'; form-action 'none'; frame-ancestors 'none'"},
    });
    Route();

    const std::string address = "127.0.0.1";
    int port = options_.port;
    if (port == 0) {
        port = server_.bind_to_any_port(address);
        if (port < 0) throw std::runtime_error("cannot listen on " + address + ": no free port");
    } else if (port < 0 || port > 65535 || !server_.bind_to_port(address, port)) {
        throw std::runtime_error("cannot listen on " + address + ":" + std::to_string(port) + " (in use, or not a port)");
    }
    host_ = address + ":" + std::to_string(port);
    listener_ = std::thread([this] {
        server_.listen_after_bind();
        listenerEnded_ = true;
    });
    // The server stops only once it runs, so Stop must not come before that.
    while (!server_.is_running() && !listenerEnded_) std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

void WebDialogRunner::Session::Route() {
    server_.set_pre_routing_handler([this](const httplib::Request& request, httplib::Response& response) {
        using Handled = httplib::Server::HandlerResponse;
        const std::string prefix = "/" + token_;
        Reply refusal;
        if (request.get_header_value("Host") != host_) refusal = ErrorReply(403, "this address serves 127.0.0.1 only");
        else if (request.path != prefix && request.path.compare(0, prefix.size() + 1, prefix + "/") != 0)
            refusal = ErrorReply(404, "not found");
        else return Handled::Unhandled;
        // The body of a refused request is never read, so the connection cannot carry another.
        refusal.headers.emplace("Connection", "close");
        Send(response, refusal);
        return Handled::Handled;
    });
    server_.set_error_handler([](const httplib::Request&, httplib::Response& response) {
        if (!response.body.empty()) return;
        const char* reason = response.status == 413 ? "the body is too large" : response.status == 404 ? "not found" : "bad request";
        response.set_content(JsonText({{"error", reason}}), "application/json");
    });

    const std::string root = "/" + token_;
    server_.Get(root, [root](const httplib::Request&, httplib::Response& response) { response.set_redirect(root + "/"); });
    server_.Get(root + R"(/([a-z]+\.(html|css|js))?)", [](const httplib::Request& request, httplib::Response& response) {
        const std::string name = request.matches[1].length() == 0 ? "dialog.html" : request.matches[1].str();
        const WebAsset* asset = FindAsset(name);
        if (asset == nullptr) return Send(response, ErrorReply(404, "not found"));
        response.set_content(asset->body.data(), asset->body.size(), std::string(asset->contentType).c_str());
    });
    server_.Get(root + "/api/state", [this](const httplib::Request&, httplib::Response& response) {
        auto request = std::make_shared<Request>();
        request->kind = RequestKind::State;
        Send(response, Submit(request));
    });
    server_.Get(root + R"(/api/canvas/(\d{1,6}))", [this](const httplib::Request& match, httplib::Response& response) {
        auto request = std::make_shared<Request>();
        request->kind = RequestKind::Canvas;
        request->id = std::stoi(match.matches[1].str());
        Send(response, Submit(request));
    });
    server_.Get(root + "/api/looks", [this](const httplib::Request&, httplib::Response& response) {
        auto request = std::make_shared<Request>();
        request->kind = RequestKind::Looks;
        Send(response, Submit(request));
    });
    const std::pair<const char*, RequestKind> posts[] = {{"edit", RequestKind::Edit},   {"press", RequestKind::Press},
                                                         {"mouse", RequestKind::Mouse}, {"close", RequestKind::Close},
                                                         {"look", RequestKind::Look}};
    for (const auto& [name, kind] : posts) {
        server_.Post(root + "/api/" + name, [this, kind = kind](const httplib::Request& http, httplib::Response& response) {
            auto body = JsonBody(http);
            if (auto* refusal = std::get_if<Reply>(&body)) return Send(response, *refusal);
            auto parsed = ParsePost(kind, std::get<json>(body));
            if (auto* refusal = std::get_if<Reply>(&parsed)) return Send(response, *refusal);
            Send(response, Submit(std::get<RequestPtr>(parsed)));
        });
    }
}

// On a server thread: queue the request and wait for the dialog's thread to answer it.
Reply WebDialogRunner::Session::Submit(RequestPtr request) {
    std::future<Reply> reply = request->reply.get_future();
    {
        std::lock_guard lock(mutex_);
        if (closed_) return ErrorReply(410, "the dialog is closed");
        queue_.push_back(std::move(request));
    }
    wake_.notify_all();
    return reply.get();
}

// The next request, or null at the deadline or on an interruption.
RequestPtr WebDialogRunner::Session::Next(Clock::time_point deadline) {
    std::unique_lock lock(mutex_);
    while (queue_.empty()) {
        if (Interrupted()) return nullptr;
        const Clock::time_point now = Clock::now();
        if (now >= deadline) return nullptr;
        wake_.wait_until(lock, std::min(deadline, now + kPollInterval));
    }
    RequestPtr request = std::move(queue_.front());
    queue_.pop_front();
    return request;
}

void WebDialogRunner::Session::PutBack(RequestPtr request) {
    std::lock_guard lock(mutex_);
    queue_.push_front(std::move(request));
}

void WebDialogRunner::Session::Stop() {
    std::deque<RequestPtr> unanswered;
    {
        std::lock_guard lock(mutex_);
        closed_ = true;
        unanswered.swap(queue_);
    }
    for (const RequestPtr& request : unanswered) Answer(*request, ErrorReply(410, "the dialog is closed"));
    for (const RequestPtr& request : {dragRequest_, lookRequest_})
        if (request) Answer(*request, ErrorReply(410, "the dialog is closed"));
    server_.stop();
    if (listener_.joinable()) listener_.join();
}

bool WebDialogRunner::Session::Run(Dialog& dialog, const std::string& look) {
    dialog_ = &dialog;
    struct Serving {
        Session& session;
        ~Serving() {
            session.versionBase_ = session.CanvasVersion() + 1;
            session.dialog_ = nullptr;
        }
    } serving{*this};
    look_ = look;
    done_ = accepted_ = false;
    picked_.reset();
    ++dialogs_;
    if (!listening_) {
        Listen();
        listening_ = true;
        if (options_.ready) options_.ready("http://" + host_ + "/" + token_ + "/");
    }
    ReplayLastClick();
    if (RequestPtr pick = std::exchange(lookRequest_, nullptr)) Answer(*pick, JsonReply(State()));
    while (!done_) {
        if (Interrupted()) return false;
        if (RequestPtr request = Next(Clock::now() + kPollInterval)) Handle(request);
    }
    return accepted_;
}

// The plug-in keeps the light only as long as its dialog: on a new dialog the last click or drag
// position is clicked again, and its click function puts the light back there.
void WebDialogRunner::Session::ReplayLastClick() {
    if (!lastClick_) return;
    const Point at = *lastClick_;
    Control* control = FindControl(*dialog_, at.id);
    if (control == nullptr || control->type() != cKV_UserControl || !control->visible || !control->enabled ||
        !Inside(control->item.bounds, at.x, at.y))
        return;
    drag_ = Drag{control, at.x, at.y, false, true};   // a click, released where it was pressed
    ClickControl(*control, at.x, at.y);
    drag_.reset();
}

// ---- Requests on the dialog's thread ----

void WebDialogRunner::Session::Handle(const RequestPtr& request) {
    switch (request->kind) {
    case RequestKind::State: return Answer(*request, JsonReply(State()));
    case RequestKind::Canvas: return Answer(*request, Canvas(request->id));
    case RequestKind::Edit: return Answer(*request, Edit(*request));
    case RequestKind::Press: return Answer(*request, Press(*request));
    case RequestKind::Close: return Answer(*request, Close(request->accept));
    case RequestKind::Mouse: return Mouse(request);
    case RequestKind::Looks: return Answer(*request, Looks());
    case RequestKind::Look: return PickLook(request);
    }
}

json WebDialogRunner::Session::State() const {
    json controls = json::array();
    for (const Control& control : dialog_->controls) {
        const KV_Rect& bounds = control.item.bounds;
        json entry = {
            {"id", control.id()},
            {"type", int(control.type())},
            {"bounds", {{"left", bounds.left}, {"top", bounds.top}, {"right", bounds.right}, {"bottom", bounds.bottom}}},
            {"label", ControlLabel(*dialog_, control)},
            {"title", control.item.title},
            {"value", control.value},
            {"enabled", control.enabled},
            {"visible", control.visible},
        };
        if (control.item.labelFor != 0) entry["labelFor"] = control.item.labelFor;
        if (const auto setting = options_.settings.find(control.id()); setting != options_.settings.end()) {
            entry["setting"] = setting->second.name;
            if (setting->second.inverted) entry["settingInverted"] = true;
        }
        switch (control.type()) {
        case cKV_EditText:
            entry["text"] = control.text;
            entry["selection"] = {control.selectionStart, control.selectionEnd};
            break;
        case cKV_ColorButton: entry["color"] = ValueText(control); break;
        case cKV_PopupMenu: {
            json menu = json::array();
            for (const DialogMenuItem& item : control.item.menu) menu.push_back({{"value", item.value}, {"text", item.text}});
            entry["menu"] = std::move(menu);
            break;
        }
        default: break;
        }
        controls.push_back(std::move(entry));
    }
    json state = {
        {"title", dialog_->layout.title},
        {"width", dialog_->layout.width},
        {"height", dialog_->layout.height},
        {"focus", dialog_->keyControl != nullptr ? json(dialog_->keyControl->id()) : json(nullptr)},
        {"canvasVersion", CanvasVersion()},
        {"dialog", dialogs_},
        {"closed", done_},
        {"accepted", done_ && accepted_},
        {"controls", std::move(controls)},
    };
    if (!options_.looks.empty()) state["look"] = look_;
    return state;
}

Reply WebDialogRunner::Session::Looks() const {
    if (options_.looks.empty()) return ErrorReply(404, "this dialog offers no other looks");
    json looks = json::array();
    for (const LookChoice& look : options_.looks)
        looks.push_back({{"name", look.name}, {"description", look.description}, {"group", look.group}});
    return JsonReply({{"current", look_}, {"looks", std::move(looks)}});
}

// Another look ends this dialog as accepted, so the plug-in keeps the edits; the request waits for
// the next dialog, on the new look, and is answered with its state.
void WebDialogRunner::Session::PickLook(const RequestPtr& request) {
    if (options_.looks.empty()) return Answer(*request, ErrorReply(404, "this dialog offers no other looks"));
    const auto offered = std::find_if(options_.looks.begin(), options_.looks.end(),
                                      [&](const LookChoice& look) { return look.name == request->look; });
    if (offered == options_.looks.end()) return Answer(*request, ErrorReply(400, "no look named \"" + request->look + "\" is offered"));
    if (request->look == look_) return Answer(*request, JsonReply(State()));
    picked_ = request->look;
    lookRequest_ = request;
    done_ = accepted_ = true;
}

Reply WebDialogRunner::Session::Canvas(int id) const {
    const Control* control = FindControl(*dialog_, id);
    if (control == nullptr || control->type() != cKV_UserControl)
        return ErrorReply(404, "no user control with ID " + std::to_string(id));
    const host::Canvas& canvas = dialog_->canvas;
    const KV_Rect on = canvas.Clip(control->item.bounds);
    const int width = std::max(0, on.right - on.left), height = std::max(0, on.bottom - on.top);
    const std::vector<uint8_t> pixels = canvas.Copy(on);
    Reply reply{200, "application/octet-stream", std::string(pixels.begin(), pixels.end()), {}};
    reply.headers.emplace("X-Canvas-Width", std::to_string(pixels.empty() ? 0 : width));
    reply.headers.emplace("X-Canvas-Height", std::to_string(pixels.empty() ? 0 : height));
    reply.headers.emplace("X-Canvas-Version", std::to_string(CanvasVersion()));
    return reply;
}

std::variant<Control*, Reply> WebDialogRunner::Session::Target(int id, const char* action) {
    Control* control = FindControl(*dialog_, id);
    if (control == nullptr) return ErrorReply(404, "no control with ID " + std::to_string(id));
    if (!control->visible || !control->enabled)
        return ErrorReply(409, "\"" + ControlLabel(*dialog_, *control) + "\" cannot be " + action + " now: it is " +
                                   (control->visible ? "disabled" : "hidden"));
    return control;
}

Reply WebDialogRunner::Session::Edit(const Request& request) {
    auto target = Target(request.id, "edited");
    if (auto* refusal = std::get_if<Reply>(&target)) return *refusal;
    Control& control = *std::get<Control*>(target);
    const std::string name = "\"" + ControlLabel(*dialog_, control) + "\"";
    const json& value = request.value;
    std::string text;
    switch (control.type()) {
    case cKV_CheckBox:
        if (!value.is_boolean()) return ErrorReply(400, name + " is a check box: the value must be true or false");
        text = value.get<bool>() ? "on" : "off";
        break;
    case cKV_EditText:
        if (!value.is_string()) return ErrorReply(400, name + " is an edit text: the value must be a string");
        text = value.get<std::string>();
        break;
    case cKV_ColorButton:
        if (!value.is_string()) return ErrorReply(400, name + " is a colour button: the value must be \"#RRGGBB\"");
        text = value.get<std::string>();
        break;
    case cKV_RadioGroup:
        if (!value.is_number_integer()) return ErrorReply(400, name + " is a radio group: the value must be a whole number");
        text = std::to_string(value.get<int64_t>());
        break;
    case cKV_PopupMenu: {
        if (!value.is_number_integer()) return ErrorReply(400, name + " is a pop-up menu: the value must be an item's value");
        // Edited by the item's text, which EditControl matches before values.
        const auto item = std::find_if(control.item.menu.begin(), control.item.menu.end(),
                                       [&](const DialogMenuItem& entry) { return entry.value == value.get<int64_t>(); });
        if (item == control.item.menu.end()) return ErrorReply(400, name + " has no item with the value " + value.dump());
        text = item->text;
        break;
    }
    default: return ErrorReply(400, name + " (" + ControlTypeName(control.type()) + ") cannot be edited");
    }
    if (const std::optional<std::string> problem = EditControl(control, text)) return ErrorReply(400, name + ": " + *problem);
    FireHit(control);
    return JsonReply(State());
}

Reply WebDialogRunner::Session::Press(const Request& request) {
    auto target = Target(request.id, "pressed");
    if (auto* refusal = std::get_if<Reply>(&target)) return *refusal;
    Control& control = *std::get<Control*>(target);
    if (control.type() != cKV_PushButton) return ErrorReply(400, "\"" + ControlLabel(*dialog_, control) + "\" is not a push button");
    if (control.id() == kAcceptButtonID || control.id() == kCancelButtonID) return Close(control.id() == kAcceptButtonID);
    FireHit(control);
    return JsonReply(State());
}

Reply WebDialogRunner::Session::Close(bool accept) {
    done_ = true;
    accepted_ = accept;
    return JsonReply(State());
}

void WebDialogRunner::Session::Mouse(const RequestPtr& request) {
    // Moves and ups outside a drag (after it timed out, say) have nothing left to move.
    if (request->mouse != MouseKind::Down) return Answer(*request, JsonReply(State()));
    auto target = Target(request->id, "clicked");
    if (auto* refusal = std::get_if<Reply>(&target)) return Answer(*request, *refusal);
    Control& control = *std::get<Control*>(target);
    if (control.type() != cKV_UserControl)
        return Answer(*request, ErrorReply(400, "\"" + ControlLabel(*dialog_, control) + "\" does not take mouse events"));
    if (!Inside(control.item.bounds, request->x, request->y))
        return Answer(*request, ErrorReply(400, "the mouse-down is outside the control"));
    drag_ = Drag{&control, request->x, request->y};
    lastClick_ = Point{control.id(), request->x, request->y};
    dragRequest_ = request;
    ClickControl(control, request->x, request->y);
    drag_.reset();
    if (RequestPtr last = std::exchange(dragRequest_, nullptr)) Answer(*last, JsonReply(State()));
}

bool WebDialogRunner::Session::TrackMouse(Control& control, int* x, int* y) {
    if (!drag_ || drag_->control != &control) return false;   // no button is down in this control
    Drag& drag = *drag_;
    if (!drag.reportedClick) {
        drag.reportedClick = true;
        *x = drag.x;
        *y = drag.y;
        return true;
    }
    if (!drag.released) {
        // The page waits for each step to be drawn before it sends the next event.
        if (RequestPtr step = std::exchange(dragRequest_, nullptr)) Answer(*step, JsonReply(State()));
        const Clock::time_point deadline = Clock::now() + options_.dragTimeout;
        while (true) {
            RequestPtr next = Next(deadline);
            if (!next) {
                drag.released = true;   // timed out or interrupted: the button counts as released
                break;
            }
            if (next->ReadsOnly()) {
                Handle(next);
                continue;
            }
            if (next->kind == RequestKind::Mouse && next->id == control.id() && next->mouse != MouseKind::Down) {
                drag.x = next->x;
                drag.y = next->y;
                lastClick_ = Point{control.id(), drag.x, drag.y};
                drag.released = next->mouse == MouseKind::Up;
                dragRequest_ = std::move(next);
                break;
            }
            PutBack(std::move(next));   // anything else ends the drag and is handled after it
            drag.released = true;
            break;
        }
    }
    *x = drag.x;
    *y = drag.y;
    return !drag.released;
}

// ---- WebDialogRunner ----

WebDialogRunner::WebDialogRunner(WebDialogOptions options) : options_(std::move(options)) {}

WebDialogRunner::~WebDialogRunner() = default;

bool WebDialogRunner::Run(Dialog& dialog) {
    if (running_) throw std::logic_error("the web dialog runner is already running a dialog");
    picked_.reset();
    if (!session_) session_ = std::make_unique<Session>(options_);
    running_ = true;
    // The server stays up for the next dialog only when a look was picked.
    struct EndRun {
        WebDialogRunner& runner;
        ~EndRun() {
            runner.running_ = false;
            if (!runner.picked_) runner.session_.reset();
        }
    } endRun{*this};
    const bool accepted = session_->Run(dialog, look_);
    picked_ = session_->TakePicked();
    return accepted;
}

bool WebDialogRunner::TrackMouse(Control& control, int* x, int* y) {
    return running_ && session_->TrackMouse(control, x, y);
}

}  // namespace vellux::host
