#include "gimp/flare_dialog.h"

#include <cmath>
#include <string>
#include <vector>

#include <libgimp/gimpui.h>
#include <OpenImageIO/imagebufalgo.h>

#include "engine/blend.h"
#include "engine/lens_look.h"
#include "engine/setting_assignments.h"
#include "engine/setting_names.h"
#include "engine/table_search.h"
#include "gimp/flare_preview.h"

namespace vellux::gimp {

namespace {

constexpr int kResponseReset = 1;
constexpr const char* kLensPrefix = "lens: ";   // lenses in the look list, after the tables

// A setting's widget: a scale entry's adjustment, a colour button or a check button.
struct SettingWidget {
    const engine::SettingName* setting;
    GtkObject* adjustment = nullptr;
    GtkWidget* widget = nullptr;
};

struct DialogState {
    gint32 image = 0, drawable = 0;
    FlareArguments arguments;
    engine::SettingEdits edits;        // the settings shown, every one given
    PreviewPlate plate;
    std::vector<uint8_t> painted;
    GtkWidget* preview = nullptr;
    GtkWidget* problem = nullptr;      // what the engine said when the preview could not be painted
    GtkObject* lightX = nullptr;
    GtkObject* lightY = nullptr;
    GtkObject* intensity = nullptr;
    GtkWidget* color = nullptr;
    GtkWidget* look = nullptr;
    GtkWidget* blend = nullptr;
    GtkWidget* flareOnly = nullptr;
    std::vector<std::string> looks;    // the look list's entries: table names, then kLensPrefix + lens
    std::vector<SettingWidget> settings;
    bool showing = false;              // widgets being set from the state: their signals ignored
};

// ---- The preview ------------------------------------------------------------------------------

PreviewPlate PlateFor(gint32 drawable, GimpPreview* preview);

// The preview's size is known once it is shown: the plate is made, or made again, then.
void UpdatePreview(DialogState* state) {
    gint width = 0, height = 0;
    gimp_preview_get_size(GIMP_PREVIEW(state->preview), &width, &height);
    if (width != state->plate.width || height != state->plate.height)
        state->plate = PlateFor(state->drawable, GIMP_PREVIEW(state->preview));
    try {
        PaintPreview(state->plate, state->arguments, state->painted);
        gtk_label_set_text(GTK_LABEL(state->problem), "");
    } catch (const std::exception& error) {
        state->painted = state->plate.pixels;
        gtk_label_set_text(GTK_LABEL(state->problem), error.what());
    }
    gimp_preview_draw_buffer(GIMP_PREVIEW(state->preview), state->painted.data(),
                             state->plate.width * state->plate.channels);
}

// The drawable as the preview shows it: GIMP's thumbnail of it, in the preview's size and the
// drawable's channels (what the preview draws), whatever GIMP made the thumbnail.
PreviewPlate PlateFor(gint32 drawable, GimpPreview* preview) {
    PreviewPlate plate;
    gimp_preview_get_size(preview, &plate.width, &plate.height);
    plate.channels = gimp_drawable_has_alpha(drawable) ? 4 : 3;
    gint width = plate.width, height = plate.height, bpp = 0;
    guchar* data = gimp_drawable_get_thumbnail_data(drawable, &width, &height, &bpp);
    const OIIO::ImageBuf thumbnail(OIIO::ImageSpec(width, height, bpp, OIIO::TypeUInt8), data);
    const int order[4] = {0, 1, 2, 3};
    const float opaque[4] = {0, 0, 0, 1};
    const OIIO::ImageBuf channels = OIIO::ImageBufAlgo::channels(thumbnail, plate.channels, order, opaque);
    OIIO::ImageBuf sized(OIIO::ImageSpec(plate.width, plate.height, plate.channels, OIIO::TypeUInt8));
    if (width == plate.width && height == plate.height) OIIO::ImageBufAlgo::copy(sized, channels);
    else OIIO::ImageBufAlgo::resize(sized, channels);
    plate.pixels.resize(size_t(plate.width) * size_t(plate.height) * size_t(plate.channels));
    sized.get_pixels(sized.roi(), OIIO::TypeUInt8, plate.pixels.data());
    g_free(data);
    plate.imageWidth = gimp_drawable_width(drawable);
    plate.imageHeight = gimp_drawable_height(drawable);
    return plate;
}

// A click or drag on the preview: the light there, in the image's pixels.
gboolean PlaceLight(GtkWidget* area, GdkEvent* event, DialogState* state) {
    double x = 0, y = 0;
    if (event->type == GDK_BUTTON_PRESS && event->button.button == 1) x = event->button.x, y = event->button.y;
    else if (event->type == GDK_MOTION_NOTIFY && (event->motion.state & GDK_BUTTON1_MASK)) x = event->motion.x, y = event->motion.y;
    else return FALSE;
    const GimpPreviewArea* drawn = GIMP_PREVIEW_AREA(area);
    const double scale = double(state->plate.imageWidth) / double(state->plate.width);
    gtk_adjustment_set_value(GTK_ADJUSTMENT(state->lightX), std::round((x - drawn->offset_x) * scale));
    gtk_adjustment_set_value(GTK_ADJUSTMENT(state->lightY), std::round((y - drawn->offset_y) * scale));
    return TRUE;
}

// ---- From the widgets ---------------------------------------------------------------------------

void TakeSettings(DialogState* state) {
    for (const SettingWidget& w : state->settings) {
        const engine::SettingName& s = *w.setting;
        if (s.kind == engine::SettingKind::number) {
            engine::SetEdit(s, gtk_adjustment_get_value(GTK_ADJUSTMENT(w.adjustment)), state->edits);
        } else if (s.kind == engine::SettingKind::whole) {
            engine::SetEdit(s, int32_t(std::lround(gtk_adjustment_get_value(GTK_ADJUSTMENT(w.adjustment)))), state->edits);
        } else if (s.kind == engine::SettingKind::color) {
            GimpRGB rgb;
            gimp_color_button_get_color(GIMP_COLOR_BUTTON(w.widget), &rgb);
            guchar r, g, b;
            gimp_rgb_get_uchar(&rgb, &r, &g, &b);
            engine::SetEdit(s, engine::LightColor{r, g, b}, state->edits);
        } else {
            engine::SetEdit(s, bool(gtk_toggle_button_get_active(GTK_TOGGLE_BUTTON(w.widget))), state->edits);
        }
    }
    state->arguments.settings = engine::SettingAssignmentsText(state->edits);
}

void TakeWidgets(DialogState* state) {
    if (state->showing) return;
    FlareArguments& a = state->arguments;
    a.lightX = gtk_adjustment_get_value(GTK_ADJUSTMENT(state->lightX));
    a.lightY = gtk_adjustment_get_value(GTK_ADJUSTMENT(state->lightY));
    a.intensity = gtk_adjustment_get_value(GTK_ADJUSTMENT(state->intensity));
    GimpRGB rgb;
    gimp_color_button_get_color(GIMP_COLOR_BUTTON(state->color), &rgb);
    gimp_rgb_get_uchar(&rgb, &a.color.red, &a.color.green, &a.color.blue);
    const gint look = gtk_combo_box_get_active(GTK_COMBO_BOX(state->look));
    a.table.clear();
    a.lens.clear();
    if (look >= 0 && size_t(look) < state->looks.size()) {
        const std::string& chosen = state->looks[size_t(look)];
        if (chosen.starts_with(kLensPrefix)) a.lens = chosen.substr(std::string(kLensPrefix).size());
        else a.table = chosen;
    }
    const gint blend = gtk_combo_box_get_active(GTK_COMBO_BOX(state->blend));
    a.blend = blend <= 0 ? "" : engine::BlendName(engine::Blend(blend));
    a.flareOnly = gtk_toggle_button_get_active(GTK_TOGGLE_BUTTON(state->flareOnly));
    TakeSettings(state);
    gimp_preview_invalidate(GIMP_PREVIEW(state->preview));
}

// ---- Into the widgets ---------------------------------------------------------------------------

void ShowSettings(DialogState* state) {
    for (const SettingWidget& w : state->settings) {
        const std::optional<engine::SettingValue> value = engine::EditOf(*w.setting, state->edits);
        if (!value) continue;
        if (const auto* number = std::get_if<double>(&*value)) {
            gtk_adjustment_set_value(GTK_ADJUSTMENT(w.adjustment), *number);
        } else if (const auto* whole = std::get_if<int32_t>(&*value)) {
            gtk_adjustment_set_value(GTK_ADJUSTMENT(w.adjustment), *whole);
        } else if (const auto* color = std::get_if<engine::LightColor>(&*value)) {
            GimpRGB rgb;
            gimp_rgba_set_uchar(&rgb, color->red, color->green, color->blue, 255);
            gimp_color_button_set_color(GIMP_COLOR_BUTTON(w.widget), &rgb);
        } else if (const auto* on = std::get_if<bool>(&*value)) {
            gtk_toggle_button_set_active(GTK_TOGGLE_BUTTON(w.widget), *on);
        }
    }
}

void ShowArguments(DialogState* state) {
    state->showing = true;
    const FlareArguments& a = state->arguments;
    gtk_adjustment_set_value(GTK_ADJUSTMENT(state->lightX), a.lightX);
    gtk_adjustment_set_value(GTK_ADJUSTMENT(state->lightY), a.lightY);
    gtk_adjustment_set_value(GTK_ADJUSTMENT(state->intensity), a.intensity);
    GimpRGB rgb;
    gimp_rgba_set_uchar(&rgb, a.color.red, a.color.green, a.color.blue, 255);
    gimp_color_button_set_color(GIMP_COLOR_BUTTON(state->color), &rgb);
    const std::string chosen = a.lens.empty() ? (a.table.empty() ? "Vellux" : a.table) : kLensPrefix + a.lens;
    gint index = -1;
    for (size_t i = 0; i < state->looks.size(); ++i)
        if (state->looks[i] == chosen) index = gint(i);
    gtk_combo_box_set_active(GTK_COMBO_BOX(state->look), index);
    gtk_combo_box_set_active(GTK_COMBO_BOX(state->blend),
                             a.blend.empty() ? 0 : gint(engine::ParseBlend("blend", a.blend)));
    gtk_toggle_button_set_active(GTK_TOGGLE_BUTTON(state->flareOnly), a.flareOnly);
    ShowSettings(state);
    state->showing = false;
    TakeWidgets(state);
}

// The arguments' settings over the plug-in's defaults: every setting has a value to show.
engine::SettingEdits ShownEdits(const std::string& settings) {
    engine::SettingEdits edits = engine::DefaultSettingEdits();
    engine::SettingEdits given;
    try {
        given = engine::ParseSettingAssignments(settings);
    } catch (const std::exception&) {
        return edits;   // last values that no longer read: the defaults
    }
    for (const engine::SettingName& setting : engine::SettingNames())
        if (const auto value = engine::EditOf(setting, given)) engine::SetEdit(setting, *value, edits);
    return edits;
}

void Reset(DialogState* state) {
    state->arguments = DefaultArguments(gimp_image_width(state->image), gimp_image_height(state->image));
    state->edits = engine::DefaultSettingEdits();
    ShowArguments(state);
}

// ---- Building the dialog ------------------------------------------------------------------------

// A slider's reach for a setting whose range is open: from its default, generous.
void SliderRange(const engine::SettingName& s, double initial, double& lower, double& upper) {
    lower = std::isfinite(s.min) ? s.min : -180.0;
    upper = std::isfinite(s.max) ? s.max : std::max(1.0, 4.0 * std::fabs(initial));
    if (s.name == "star-rotation") upper = 180.0;
}

GtkObject* ScaleEntry(GtkWidget* table, int row, const char* label, double value, double lower, double upper,
                      double step, int digits, double hardLower, double hardUpper) {
    GtkObject* adjustment = gimp_scale_entry_new(GTK_TABLE(table), 0, row, label, 200, 6, value, lower, upper, step,
                                                 step * 10.0, guint(digits), FALSE, hardLower, hardUpper, nullptr, nullptr);
    return adjustment;
}

std::string Label(std::string_view name) {   // "ring-color" -> "Ring colour"
    std::string label(name);
    for (char& c : label)
        if (c == '-') c = ' ';
    if (const size_t color = label.find("color"); color != std::string::npos) label.replace(color, 5, "colour");
    if (!label.empty()) label[0] = char(std::toupper(static_cast<unsigned char>(label[0])));
    return label;
}

GtkWidget* SettingsTable(DialogState* state) {
    const auto& names = engine::SettingNames();
    GtkWidget* box = gtk_vbox_new(FALSE, 6);
    GtkWidget* table = gtk_table_new(guint(names.size()), 3, FALSE);
    gtk_table_set_col_spacings(GTK_TABLE(table), 6);
    gtk_table_set_row_spacings(GTK_TABLE(table), 2);
    gtk_box_pack_start(GTK_BOX(box), table, FALSE, FALSE, 0);
    GtkWidget* switches = gtk_table_new(5, 2, TRUE);
    gtk_box_pack_start(GTK_BOX(box), switches, FALSE, FALSE, 0);
    int row = 0, toggles = 0;
    for (const engine::SettingName& s : names) {
        if (s.name == "wireframe-preview") continue;   // the table dialog's own preview
        SettingWidget w{&s};
        const std::string label = Label(s.name);
        const std::optional<engine::SettingValue> value = engine::EditOf(s, state->edits);
        if (s.kind == engine::SettingKind::number) {
            const double initial = value ? std::get<double>(*value) : 0.0;
            double lower = 0, upper = 1;
            SliderRange(s, initial, lower, upper);
            const double hardLower = std::isfinite(s.min) ? s.min : -1e6, hardUpper = std::isfinite(s.max) ? s.max : 1e6;
            w.adjustment = ScaleEntry(table, row++, label.c_str(), initial, lower, upper, upper - lower > 20 ? 1.0 : 0.01,
                                      upper - lower > 20 ? 1 : 3, hardLower, hardUpper);
        } else if (s.kind == engine::SettingKind::whole) {
            const double initial = value ? std::get<int32_t>(*value) : 0;
            w.adjustment = ScaleEntry(table, row++, label.c_str(), initial, 0, 16, 1, 0, 0, 1000);
        } else if (s.kind == engine::SettingKind::color) {
            GimpRGB rgb;
            gimp_rgba_set_uchar(&rgb, 0x50, 0x14, 0x0A, 255);
            w.widget = gimp_color_button_new(label.c_str(), 60, 20, &rgb, GIMP_COLOR_AREA_FLAT);
            gimp_table_attach_aligned(GTK_TABLE(table), 0, row++, (label + ":").c_str(), 0.0, 0.5, w.widget, 1, TRUE);
        } else {
            w.widget = gtk_check_button_new_with_label(label.c_str());
            gtk_table_attach_defaults(GTK_TABLE(switches), w.widget, guint(toggles % 2), guint(toggles % 2 + 1),
                                      guint(toggles / 2), guint(toggles / 2 + 1));
            ++toggles;
        }
        if (w.adjustment) g_signal_connect_swapped(w.adjustment, "value-changed", G_CALLBACK(TakeWidgets), state);
        else if (s.kind == engine::SettingKind::color)
            g_signal_connect_swapped(w.widget, "color-changed", G_CALLBACK(TakeWidgets), state);
        else g_signal_connect_swapped(w.widget, "toggled", G_CALLBACK(TakeWidgets), state);
        state->settings.push_back(w);
    }
    return box;
}

GtkWidget* LightTable(DialogState* state) {
    GtkWidget* table = gtk_table_new(6, 3, FALSE);
    gtk_table_set_col_spacings(GTK_TABLE(table), 6);
    gtk_table_set_row_spacings(GTK_TABLE(table), 2);
    const double w = state->plate.imageWidth, h = state->plate.imageHeight;
    state->lightX = ScaleEntry(table, 0, "Light _X:", state->arguments.lightX, 0, w, 1, 0, -4 * w, 5 * w);
    state->lightY = ScaleEntry(table, 1, "Light _Y:", state->arguments.lightY, 0, h, 1, 0, -4 * h, 5 * h);
    state->intensity = ScaleEntry(table, 2, "_Intensity:", state->arguments.intensity, 0, 2, 0.01, 2, 0, 100);
    GimpRGB rgb;
    gimp_rgba_set_uchar(&rgb, 255, 255, 255, 255);
    state->color = gimp_color_button_new("Light Colour", 60, 20, &rgb, GIMP_COLOR_AREA_FLAT);
    gimp_table_attach_aligned(GTK_TABLE(table), 0, 3, "Light _colour:", 0.0, 0.5, state->color, 1, TRUE);
    state->look = gtk_combo_box_text_new();
    for (const engine::TableEntry& t : engine::ListTables()) {
        state->looks.push_back(t.name);
        gtk_combo_box_text_append_text(GTK_COMBO_BOX_TEXT(state->look), t.name.c_str());
    }
    for (const engine::LensEntry& l : engine::ListLenses()) {
        state->looks.push_back(kLensPrefix + l.name);
        gtk_combo_box_text_append_text(GTK_COMBO_BOX_TEXT(state->look), (kLensPrefix + l.name).c_str());
    }
    gimp_table_attach_aligned(GTK_TABLE(table), 0, 4, "_Look:", 0.0, 0.5, state->look, 2, FALSE);
    state->blend = gtk_combo_box_text_new();
    for (const char* blend : {"display", "add", "screen"})
        gtk_combo_box_text_append_text(GTK_COMBO_BOX_TEXT(state->blend), blend);
    gimp_table_attach_aligned(GTK_TABLE(table), 0, 5, "_Blend:", 0.0, 0.5, state->blend, 2, FALSE);
    for (GtkObject* adjustment : {state->lightX, state->lightY, state->intensity})
        g_signal_connect_swapped(adjustment, "value-changed", G_CALLBACK(TakeWidgets), state);
    g_signal_connect_swapped(state->color, "color-changed", G_CALLBACK(TakeWidgets), state);
    g_signal_connect_swapped(state->look, "changed", G_CALLBACK(TakeWidgets), state);
    g_signal_connect_swapped(state->blend, "changed", G_CALLBACK(TakeWidgets), state);
    return table;
}

}  // namespace

bool RunFlareDialog(gint32 image, gint32 drawable, FlareArguments& arguments) {
    gimp_ui_init("vellux-flare", FALSE);
    DialogState state;
    state.image = image;
    state.drawable = drawable;
    state.arguments = arguments;
    state.edits = ShownEdits(arguments.settings);

    GtkWidget* dialog = gimp_dialog_new("Vellux Lens Flare", "vellux-flare", nullptr, GtkDialogFlags(0),
                                        gimp_standard_help_func, kProcedureName, "_Reset", kResponseReset,
                                        "_Cancel", GTK_RESPONSE_CANCEL, "_OK", GTK_RESPONSE_OK, nullptr);
    gtk_dialog_set_alternative_button_order(GTK_DIALOG(dialog), kResponseReset, GTK_RESPONSE_OK, GTK_RESPONSE_CANCEL, -1);
    gimp_window_set_transient(GTK_WINDOW(dialog));

    GtkWidget* main = gtk_hbox_new(FALSE, 12);
    gtk_container_set_border_width(GTK_CONTAINER(main), 12);
    gtk_box_pack_start(GTK_BOX(gtk_dialog_get_content_area(GTK_DIALOG(dialog))), main, TRUE, TRUE, 0);

    GtkWidget* left = gtk_vbox_new(FALSE, 6);
    gtk_box_pack_start(GTK_BOX(main), left, FALSE, FALSE, 0);
    state.preview = gimp_aspect_preview_new_from_drawable_id(drawable);
    gtk_box_pack_start(GTK_BOX(left), state.preview, FALSE, FALSE, 0);
    state.plate.imageWidth = gimp_drawable_width(drawable);   // the light's range; the pixels come when shown
    state.plate.imageHeight = gimp_drawable_height(drawable);
    state.problem = gtk_label_new("");
    gtk_label_set_line_wrap(GTK_LABEL(state.problem), TRUE);
    gtk_box_pack_start(GTK_BOX(left), state.problem, FALSE, FALSE, 0);
    GtkWidget* area = gimp_preview_get_area(GIMP_PREVIEW(state.preview));
    gtk_widget_add_events(area, GDK_BUTTON_PRESS_MASK | GDK_BUTTON1_MOTION_MASK);
    g_signal_connect(area, "button-press-event", G_CALLBACK(PlaceLight), &state);
    g_signal_connect(area, "motion-notify-event", G_CALLBACK(PlaceLight), &state);
    gtk_widget_set_tooltip_text(area, "Click or drag to place the light");

    GtkWidget* right = gtk_vbox_new(FALSE, 12);
    gtk_box_pack_start(GTK_BOX(main), right, TRUE, TRUE, 0);
    GtkWidget* lightFrame = gimp_frame_new("Light and look");
    gtk_container_add(GTK_CONTAINER(lightFrame), LightTable(&state));
    gtk_box_pack_start(GTK_BOX(right), lightFrame, FALSE, FALSE, 0);
    GtkWidget* settingsFrame = gimp_frame_new("Flare");
    gtk_container_add(GTK_CONTAINER(settingsFrame), SettingsTable(&state));
    gtk_box_pack_start(GTK_BOX(right), settingsFrame, FALSE, FALSE, 0);
    state.flareOnly = gtk_check_button_new_with_mnemonic("Flare only, onto a _new layer");
    g_signal_connect_swapped(state.flareOnly, "toggled", G_CALLBACK(TakeWidgets), &state);
    gtk_box_pack_start(GTK_BOX(right), state.flareOnly, FALSE, FALSE, 0);

    g_signal_connect_swapped(state.preview, "invalidated", G_CALLBACK(UpdatePreview), &state);
    ShowArguments(&state);
    gtk_widget_show_all(dialog);

    gint response = 0;
    while ((response = gimp_dialog_run(GIMP_DIALOG(dialog))) == kResponseReset) Reset(&state);
    gtk_widget_destroy(dialog);
    if (response != GTK_RESPONSE_OK) return false;
    arguments = state.arguments;
    return true;
}

}  // namespace vellux::gimp
