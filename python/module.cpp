// The _vellux extension: the engine for Python. Flare instances rendering into numpy arrays,
// images read and written, scenes read and rendered, lights tracked in footage (light_tracking.h).
// The pure-Python package vellux wraps it (python/vellux/__init__.py); everything a user calls is
// documented there.
//
// The GIL is released while the plug-in paints. Each Flare has its own private copy of the
// plug-in (the engine's rule for the plug-in's process statics), so Flares on different threads
// render at once; one Flare used from two threads takes turns (a lock).
#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>
#include <pybind11/stl/filesystem.h>


#include <cmath>
#include <memory>
#include <mutex>
#include <optional>

#include "engine/colour.h"
#include "engine/flare.h"
#include "engine/frame_image.h"
#include "engine/frame_render.h"
#include "engine/occlusion.h"
#include "engine/plate.h"
#include "engine/plugin_about.h"
#include "engine/plugin_location.h"
#include "engine/scene_render.h"
#include "python/array_image.h"
#include "python/light_tracking.h"
#include "python/settings_names.h"

namespace py = pybind11;
namespace fs = std::filesystem;

namespace vellux::python {

namespace {

double Finite(const char* what, double value, double min) {
    if (!std::isfinite(value)) throw py::value_error(std::string(what) + ": " + engine::NumberText(value) + " is not a finite number");
    if (value < min) throw py::value_error(std::string(what) + ": " + engine::NumberText(value) + " is out of range (at least " + engine::NumberText(min) + ")");
    return value;
}

engine::LightColor ColorOf(const std::array<int, 3>& rgb) {
    for (const int c : rgb)
        if (c < 0 || c > 255) throw py::value_error("color: " + std::to_string(c) + " is outside 0..255");
    return {uint8_t(rgb[0]), uint8_t(rgb[1]), uint8_t(rgb[2])};
}

engine::FlareLight LightOf(const std::array<double, 2>& at, const std::array<int, 3>& color, double intensity, double radius,
                           double pixelAspect) {
    engine::FlareLight light;
    light.x = Finite("light x", at[0], -HUGE_VAL);
    light.y = Finite("light y", at[1], -HUGE_VAL);
    light.color = ColorOf(color);
    light.intensity = Finite("intensity", intensity, 0.0);
    light.radius = Finite("radius", radius, 0.0);
    light.pixelAspect = Finite("pixel_aspect", pixelAspect, 0.0);
    if (pixelAspect == 0.0) throw py::value_error("pixel_aspect: 0 is out of range (more than 0)");
    return light;
}

// The lens look's keyword arguments: the lens, and its aperture (the lens's own where not given).
struct LensArguments {
    std::optional<std::string> lens;
    std::optional<double> fNumber;
    std::optional<int> blades;
    std::optional<double> bladeCurvature, apertureRotation;
};

// The lens look a Flare asks for, or none for the table's; the engine checks the values (LensLook).
std::optional<engine::LensLookOptions> LensLookOf(const LensArguments& arguments, bool tableGiven) {
    if (!arguments.lens) {
        if (arguments.fNumber || arguments.blades || arguments.bladeCurvature || arguments.apertureRotation)
            throw py::value_error("f_number, blades, blade_curvature and aperture_rotation: only with lens");
        return std::nullopt;
    }
    if (tableGiven) throw py::value_error("table and lens: a flare paints a table's look or its lens's, not both");
    engine::LensLookOptions look;
    look.lens = *arguments.lens;
    look.fNumber = arguments.fNumber;
    look.blades = arguments.blades;
    look.bladeCurvature = arguments.bladeCurvature;
    look.apertureRotation = arguments.apertureRotation;
    return look;
}

class PyFlare {
public:
    PyFlare(const std::optional<std::string>& table, const std::optional<std::string>& plugin, const LensArguments& lens,
            int threads)
        : edits_(engine::DefaultSettingEdits()) {
        engine::FlareSetup setup;
        setup.lens = LensLookOf(lens, table.has_value());
        setup.plugin = engine::FindPlugin(plugin.value_or(""));
        setup.table = table.value_or("");
        flare_ = std::make_unique<engine::Flare>(setup);
        flare_->SetThreads(threads);
        table_ = table.value_or("");
        lens_ = lens.lens.value_or("");
        engine::RenderRequest made;   // what the tool would be asked for, to name it in a look
        made.table = table_;
        made.lens = setup.lens;
        source_ = engine::RequestLookSource(made);
    }

    py::object Get(const std::string& name) const { return GetSetting(edits_, name); }
    void Set(const std::string& name, const py::handle& value) { SetSetting(edits_, name, value); }
    const std::string& table() const { return table_; }
    const std::string& lens() const { return lens_; }

    // The look file's text of the record that reaches the plug-in, as an EXR's Vellux:Settings
    // holds it: the settings by name, and the table or lens the flare is painted with.
    std::string Look() {
        py::gil_scoped_release unlocked;   // a render on another thread may hold the flare
        const std::lock_guard lock(mutex_);
        flare_->instance().EditSettings(edits_);
        return engine::WriteSettingsText({engine::NativeByteOrder(), flare_->host().controlData()}, source_);
    }

    py::array Render(const py::array& image, const std::array<double, 2>& at, const std::array<int, 3>& color,
                     double intensity, double radius, double pixelAspect, const std::optional<py::array>& occlusion,
                     const std::optional<std::string>& colorspace, const std::string& blendName) {
        const engine::Blend blend = engine::ParseBlend("blend", blendName);
        const ArrayImage plate = ImageFromArray(image, "image");
        engine::FlareLight light = LightOf(at, color, intensity, radius, pixelAspect);
        if (occlusion) {
            const ArrayImage mask = MaskFromArray(*occlusion, plate.image.spec().width, plate.image.spec().height);
            light = engine::OccludedLight(light, engine::OcclusionMask::FromImage(mask.image));
        }
        OIIO::ImageBuf painted;
        {
            py::gil_scoped_release unlocked;
            const std::lock_guard lock(mutex_);
            flare_->instance().EditSettings(edits_);
            painted = flare_->Composite(plate.image, light, {0, colorspace.value_or(""), blend});
        }
        return ArrayFromImage(std::move(painted), image.dtype());
    }

    py::array Pass(int width, int height, const std::array<double, 2>& at, const std::array<int, 3>& color,
                   double intensity, double radius, double pixelAspect, const std::optional<std::string>& colorspace) {
        if (width < 1 || height < 1) throw py::value_error("width and height must be at least 1");
        const engine::FlareLight light = LightOf(at, color, intensity, radius, pixelAspect);
        const std::string space = engine::ChooseColorspace("colorspace", colorspace.value_or(""), true);
        OIIO::ImageBuf pass;
        {
            py::gil_scoped_release unlocked;
            const std::lock_guard lock(mutex_);
            flare_->instance().EditSettings(edits_);
            pass = flare_->Pass({width, height}, light, 0, space);
        }
        return ArrayFromImage(std::move(pass), py::dtype::of<float>());
    }

    // The pass into `out`, an H x W x 4 float32 array in C order the caller keeps from frame to
    // frame: no new memory is taken.
    void PassInto(py::array& out, const std::array<double, 2>& at, const std::array<int, 3>& color, double intensity,
                  double radius, double pixelAspect, const std::optional<std::string>& colorspace, bool bottomUp) {
        if (!out.dtype().is(py::dtype::of<float>()) || out.ndim() != 3 || out.shape(2) != 4 || out.shape(0) < 1 ||
            out.shape(1) < 1 || !(out.flags() & py::array::c_style) || !out.writeable())
            throw py::value_error("out: wants a writable H x W x 4 float32 array in C order");
        const engine::FlareLight light = LightOf(at, color, intensity, radius, pixelAspect);
        const std::string space = engine::ChooseColorspace("colorspace", colorspace.value_or(""), true);
        const engine::FrameSize size{int32_t(out.shape(1)), int32_t(out.shape(0))};
        float* rgba = static_cast<float*>(out.mutable_data());
        py::gil_scoped_release unlocked;
        const std::lock_guard lock(mutex_);
        flare_->instance().EditSettings(edits_);
        flare_->PassInto(size, light, space, rgba, bottomUp);
    }

private:
    std::unique_ptr<engine::Flare> flare_;
    engine::SettingEdits edits_;
    std::string table_, lens_;
    engine::LookSource source_;
    std::mutex mutex_;
};

// The scene a scene file's text holds; ValueError with every problem, as the tool words them.
engine::Scene SceneOfText(const std::string& text) {
    engine::SceneReadResult read = engine::ReadScene(text);
    if (read.scene) return std::move(*read.scene);
    std::string message;
    for (size_t i = 0; i < read.errors.size(); ++i) message += (i > 0 ? "; " : "") + read.errors[i].Text();
    throw py::value_error(message);
}

py::dict SceneDict(const engine::Scene& scene) {
    py::dict light;
    for (const auto& [frame, key] : scene.light)
        light[py::int_(frame)] = py::dict(py::arg("position") = py::make_tuple(key.x, key.y),
                                          py::arg("color") = py::make_tuple(key.color[0], key.color[1], key.color[2]),
                                          py::arg("intensity") = key.intensity, py::arg("radius") = key.radius);
    py::dict channels;
    for (const auto& [name, keys] : scene.channels) {
        py::dict values;
        for (const auto& [frame, value] : keys) {
            if (const double* number = std::get_if<double>(&value)) values[py::int_(frame)] = *number;
            else {
                const auto& rgb = std::get<std::array<int16_t, 3>>(value);
                values[py::int_(frame)] = py::make_tuple(rgb[0], rgb[1], rgb[2]);
            }
        }
        channels[py::str(name)] = values;
    }
    py::dict out;
    out["first"] = scene.firstFrame;
    out["last"] = scene.lastFrame;
    out["width"] = scene.width;
    out["height"] = scene.height;
    out["input"] = scene.input;
    out["light_units"] = scene.lightUnits == engine::LightUnits::fraction ? "fraction" : "pixels";
    out["light"] = light;
    out["channels"] = channels;
    out["text"] = engine::WriteScene(scene);
    return out;
}

std::vector<int32_t> RenderScene(const fs::path& scene, const fs::path& output, const std::vector<int32_t>& frames,
                                 int jobs, const std::optional<std::string>& plugin, const std::optional<std::string>& table,
                                 const std::string& compression) {
    engine::RenderRequest request;
    request.compression = engine::ParseCompression("compression", compression);
    request.scene = scene;
    request.output = output;
    request.frames = frames;
    request.jobs = jobs;
    request.plugin = plugin.value_or("");
    request.table = table.value_or("");
    py::gil_scoped_release unlocked;
    return engine::RenderSceneSequence(request).written;
}

}  // namespace

}  // namespace vellux::python

PYBIND11_MODULE(_vellux, m) {
    using namespace vellux;
    using namespace vellux::python;
    m.doc() = "The Vellux engine (see the vellux package for the documented interface).";
    engine::KeepFrameMemory();   // frames are rendered one after another in this process
    py::class_<PyFlare>(m, "Flare")
        .def(py::init([](const std::optional<std::string>& table, const std::optional<std::string>& plugin,
                         const std::optional<std::string>& lens, std::optional<double> fNumber, std::optional<int> blades,
                         std::optional<double> bladeCurvature, std::optional<double> apertureRotation, int threads) {
                 return std::make_unique<PyFlare>(table, plugin,
                                                  LensArguments{lens, fNumber, blades, bladeCurvature, apertureRotation},
                                                  threads);
             }),
             py::arg("table") = py::none(), py::arg("plugin") = py::none(), py::arg("lens") = py::none(),
             py::arg("f_number") = py::none(), py::arg("blades") = py::none(), py::arg("blade_curvature") = py::none(),
             py::arg("aperture_rotation") = py::none(), py::arg("threads") = 0)
        .def("get", &PyFlare::Get)
        .def("set", &PyFlare::Set)
        .def("look", &PyFlare::Look)
        .def_property_readonly("table", &PyFlare::table)
        .def_property_readonly("lens", &PyFlare::lens)
        .def("render", &PyFlare::Render, py::arg("image"), py::arg("light"), py::arg("color"), py::arg("intensity"),
             py::arg("radius"), py::arg("pixel_aspect"), py::arg("occlusion"), py::arg("colorspace"), py::arg("blend"))
        .def("pass_", &PyFlare::Pass, py::arg("width"), py::arg("height"), py::arg("light"), py::arg("color"),
             py::arg("intensity"), py::arg("radius"), py::arg("pixel_aspect"), py::arg("colorspace"))
        .def("pass_into", &PyFlare::PassInto, py::arg("out"), py::arg("light"), py::arg("color"), py::arg("intensity"),
             py::arg("radius"), py::arg("pixel_aspect"), py::arg("colorspace"), py::arg("bottom_up"));
    m.def("setting_names", &SettingNames);
    m.def("read_image", [](const fs::path& path) {
        engine::PlateFile file = engine::ReadPlateFile(path);
        const py::dtype dtype = DtypeOf(file.stored[file.flarePart].format);
        return ArrayFromImage(std::move(file.parts[file.flarePart]), dtype);
    });
    m.def("write_image", [](const py::array& image, const fs::path& path, const std::string& compressionText) {
        const engine::Compression compression = engine::ParseCompression("compression", compressionText);
        ArrayImage buffer = ImageFromArray(image, "image");
        buffer.image.specmod().attribute("oiio:UnassociatedAlpha", 1);   // colour as it is, as read_image gives it
        engine::CheckOutputFormat(path);
        engine::CheckCompressionFor("compression", compression, path);
        engine::WriteImageFile(buffer.image, path, OIIO::TypeUnknown, nullptr, compression);
    });
    m.def("check_compression", [](const std::string& text, const fs::path& path) {
        engine::CheckCompressionFor("compression", engine::ParseCompression("compression", text), path);
    });
    m.def("load_scene", [](const fs::path& path) { return SceneDict(engine::LoadScene(path)); });
    // Scenes built in Python come as the scene file's JSON text: read by the tool's own rules.
    m.def("scene_errors", [](const std::string& text) {
        std::vector<std::pair<std::string, std::string>> errors;
        for (const engine::SceneError& error : engine::ReadScene(text).errors) errors.emplace_back(error.path, error.Text());
        return errors;
    });
    m.def("scene_text", [](const std::string& text) { return engine::WriteScene(SceneOfText(text)); });
    m.def("save_scene", [](const std::string& text, const fs::path& path) {
        const engine::Scene scene = SceneOfText(text);
        py::gil_scoped_release unlocked;
        engine::WriteSceneFile(path, scene);
    });
    // Each channel a scene may key, with the setting it animates as Flare names it.
    m.def("scene_channels", [] {
        std::vector<std::pair<std::string, std::string>> channels;
        for (const engine::SceneChannel& channel : engine::SceneChannels())
            channels.emplace_back(channel.name, PythonName(channel.setting));
        return channels;
    });
    m.def("render_scene", &RenderScene, py::arg("scene"), py::arg("output"), py::arg("frames"), py::arg("jobs"),
          py::arg("plugin") = py::none(), py::arg("table") = py::none(), py::arg("compression") = "");
    AddLightTracking(m);
    m.def("version", &engine::VelluxVersion);
}
