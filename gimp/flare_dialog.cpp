#include "gimp/flare_dialog.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <libgimp/gimpui.h>
#include <OpenImageIO/imagebuf.h>
#include <OpenImageIO/imagebufalgo.h>

#include "engine/blend.h"
#include "engine/contact_sheet.h"
#include "engine/flare.h"
#include "engine/look_sheet.h"
#include "engine/plugin_location.h"
#include "engine/setting_names.h"
#include "engine/setting_sliders.h"
#include "engine/table_search.h"
#include "gimp/dialog_settings.h"
#include "gimp/preview_flare.h"
#include "gimp/preview_geometry.h"

namespace vellux::gimp {

namespace {

constexpr const char* kHelpId = "plug-in-vellux-flare";
constexpr gint kResponseReset = 1;
constexpr int kThumbWidth = 96, kThumbHeight = 54;
constexpr int kPreviewWidth = 480, kPreviewHeight = 360;   // at most
constexpr double kFarOff = 1.0e6;   // how far past its slider a typed number may go when its range is open

// The look list's columns.
enum LookColumn { kThumbColumn, kTextColumn, kLookIndexColumn, kLookColumns };

// A setting's widget: a scale entry's adjustment, a check button or a colour button.
struct SettingWidget {
    const engine::SettingName* setting;
    GtkObject* adjustment = nullptr;
    GtkWidget* widget = nullptr;
};

// Everything the dialog works on; the GTK callbacks get it as their data.
struct DialogState {
    gint32 image = -1, drawable = -1;
    gint offsetX = 0, offsetY = 0, width = 0, height = 0;   // the drawable on the image
    FlareArguments arguments;
    ControlDataRec base{};                 // the record the settings start from
    engine::SettingEdits settings;         // every setting as shown
    std::vector<engine::SheetLook> looks;
    PreviewFlare flare;
    bool quiet = false;                    // set while widgets are set from the state

    GtkWidget* preview = nullptr;
    GtkWidget* problem = nullptr;          // the engine's last refusal, under the preview
    GtkObject *lightX = nullptr, *lightY = nullptr, *intensity = nullptr;
    GtkWidget *color = nullptr, *blend = nullptr, *flareOnly = nullptr;
    GtkWidget *lookView = nullptr, *settingsFile = nullptr;
    std::vector<SettingWidget> settingWidgets;
    GtkListStore* lookStore = nullptr;
    std::optional<OIIO::ImageBuf> thumbPlate;   // the drawable small, once the first thumbnail is painted
    size_t nextThumb = 0;
    guint thumbSource = 0;
};

// ---- Values between GIMP's widgets and the engine's ----

GimpRGB RgbOf(const engine::LightColor& c) {
    GimpRGB rgb;
    gimp_rgba_set_uchar(&rgb, c.red, c.green, c.blue, 255);
    return rgb;
}

engine::LightColor ColorOf(GtkWidget* button) {
    GimpRGB rgb;
    gimp_color_button_get_color(GIMP_COLOR_BUTTON(button), &rgb);
    guchar r = 0, g = 0, b = 0;
    gimp_rgb_get_uchar(&rgb, &r, &g, &b);
    return {r, g, b};
}

// "streak-density" as a label: "Streak density:".
std::string LabelOf(std::string_view name) {
    std::string label(name);
    std::replace(label.begin(), label.end(), '-', ' ');
    label[0] = char(std::toupper(static_cast<unsigned char>(label[0])));
    return "_" + label + ":";
}

engine::Blend BlendOf(const std::string& text) {
    try {
        return text.empty() ? engine::kDefaultBlend : engine::ParseBlend("blend", text);
    } catch (const std::exception&) {
        return engine::kDefaultBlend;
    }
}

// ---- The preview ----

// Where the zoom preview is on the drawable now. It covers the selection's bounds, scaled to its
// own size times its zoom (the zoom model's factor is relative to that fit), and scrolled.
PreviewView ViewOf(const DialogState& s) {
    auto* preview = GIMP_PREVIEW(s.preview);
    gint x = 0, y = 0, width = 0, height = 0;
    if (!gimp_drawable_mask_intersect(s.drawable, &x, &y, &width, &height))
        x = 0, y = 0, width = s.width, height = s.height;
    PreviewView view;
    gimp_preview_get_size(preview, &view.width, &view.height);
    const double zoom = gimp_zoom_preview_get_factor(GIMP_ZOOM_PREVIEW(s.preview));
    view.factorX = view.width * zoom / std::max(1, width);
    view.factorY = view.height * zoom / std::max(1, height);
    view.boundsX = x, view.boundsY = y;
    view.scrollX = preview->xoff, view.scrollY = preview->yoff;
    return view;
}

engine::FlareLight LightOnDrawable(const DialogState& s) {
    engine::FlareLight light;
    light.x = s.arguments.lightX - s.offsetX;
    light.y = s.arguments.lightY - s.offsetY;
    light.color = s.arguments.color;
    light.intensity = s.arguments.intensity;
    return light;
}

void ShowProblem(DialogState& s, const std::string& text) {
    gtk_label_set_text(GTK_LABEL(s.problem), text.c_str());
    if (text.empty()) gtk_widget_hide(s.problem);
    else gtk_widget_show(s.problem);
}

// The preview's part of the drawable with the flare; the drawable alone when the engine refuses
// (its message shown under the preview).
void DrawPreview(DialogState& s) {
    auto* zoom = GIMP_ZOOM_PREVIEW(s.preview);
    gint width = 0, height = 0, bpp = 0;
    guchar* pixels = gimp_zoom_preview_get_source(zoom, &width, &height, &bpp);
    if (pixels == nullptr) return;
    const PreviewView view = ViewOf(s);
    try {
        s.flare.Prepare(RequestFor(s.arguments, s.offsetX, s.offsetY));
        s.flare.Paint(pixels, width, height, bpp, view, ScaledFrameOf(view, s.width, s.height), LightOnDrawable(s),
                      s.settings, BlendOf(s.arguments.blend));
        ShowProblem(s, "");
    } catch (const std::exception& error) {
        ShowProblem(s, error.what());
    }
    gimp_preview_draw_buffer(GIMP_PREVIEW(s.preview), pixels, width * bpp);
    g_free(pixels);
}

void OnPreviewInvalidated(GimpPreview*, gpointer data) { DrawPreview(*static_cast<DialogState*>(data)); }

// Repainted at once while the preview updates (a drag must not wait for the preview's delay).
void Redraw(DialogState& s) {
    if (gimp_preview_get_update(GIMP_PREVIEW(s.preview))) DrawPreview(s);
}

void SetAdjustment(GtkObject* adjustment, double value) { gtk_adjustment_set_value(GTK_ADJUSTMENT(adjustment), value); }

// The light where the pointer is on the preview.
gboolean OnPreviewPointer(GtkWidget*, GdkEvent* event, gpointer data) {
    auto& s = *static_cast<DialogState*>(data);
    double x = 0.0, y = 0.0;
    if (event->type == GDK_BUTTON_PRESS && event->button.button == 1) {
        x = event->button.x, y = event->button.y;
    } else if (event->type == GDK_MOTION_NOTIFY && (event->motion.state & GDK_BUTTON1_MASK) != 0) {
        x = event->motion.x, y = event->motion.y;
    } else {
        return FALSE;
    }
    const Point on = DrawablePointOf(ViewOf(s), {x, y});
    s.quiet = true;
    s.arguments.lightX = on.x + s.offsetX;
    s.arguments.lightY = on.y + s.offsetY;
    SetAdjustment(s.lightX, s.arguments.lightX);
    SetAdjustment(s.lightY, s.arguments.lightY);
    s.quiet = false;
    Redraw(s);
    return TRUE;
}

// ---- The light page ----

void OnLightChanged(GtkWidget*, gpointer data) {
    auto& s = *static_cast<DialogState*>(data);
    if (s.quiet) return;
    s.arguments.lightX = gtk_adjustment_get_value(GTK_ADJUSTMENT(s.lightX));
    s.arguments.lightY = gtk_adjustment_get_value(GTK_ADJUSTMENT(s.lightY));
    s.arguments.intensity = gtk_adjustment_get_value(GTK_ADJUSTMENT(s.intensity));
    s.arguments.color = ColorOf(s.color);
    gint blend = 0;
    gimp_int_combo_box_get_active(GIMP_INT_COMBO_BOX(s.blend), &blend);
    s.arguments.blend = engine::BlendName(engine::Blend(blend));
    s.arguments.flareOnly = gtk_toggle_button_get_active(GTK_TOGGLE_BUTTON(s.flareOnly));
    Redraw(s);
}

GtkObject* ScaleEntry(GtkWidget* table, int row, const std::string& label, double value, double lower, double upper,
                      double step, int digits, double farLower, double farUpper, const char* tip) {
    return gimp_scale_entry_new(GTK_TABLE(table), 0, row, label.c_str(), 200, 6, value, lower, upper, step, step * 10.0,
                                digits, FALSE, farLower, farUpper, tip, nullptr);
}

// A notebook page: its contents at their natural height, at the top.
GtkWidget* Page(GtkWidget* contents) {
    GtkWidget* page = gtk_vbox_new(FALSE, 0);
    gtk_container_set_border_width(GTK_CONTAINER(page), 12);
    gtk_box_pack_start(GTK_BOX(page), contents, FALSE, FALSE, 0);
    return page;
}

// A widget at its natural size, left in its table cell.
GtkWidget* Natural(GtkWidget* widget) {
    GtkWidget* box = gtk_hbox_new(FALSE, 0);
    gtk_box_pack_start(GTK_BOX(box), widget, FALSE, FALSE, 0);
    return box;
}

GtkWidget* LightPage(DialogState& s) {
    GtkWidget* table = gtk_table_new(6, 3, FALSE);
    gtk_table_set_col_spacings(GTK_TABLE(table), 6);
    gtk_table_set_row_spacings(GTK_TABLE(table), 6);
    const FlareArguments& a = s.arguments;
    s.lightX = ScaleEntry(table, 0, "Light _X:", a.lightX, s.offsetX, s.offsetX + s.width, 1.0, 1, -kFarOff, kFarOff,
                          "Where the light is across the image, in pixels (click or drag in the preview)");
    s.lightY = ScaleEntry(table, 1, "Light _Y:", a.lightY, s.offsetY, s.offsetY + s.height, 1.0, 1, -kFarOff, kFarOff,
                          "Where the light is down the image, in pixels (click or drag in the preview)");
    s.intensity = ScaleEntry(table, 2, "_Intensity:", a.intensity, 0.0, 4.0, 0.01, 2, 0.0, kFarOff,
                             "How bright the light is (1 is full strength)");
    for (GtkObject* adjustment : {s.lightX, s.lightY, s.intensity})
        g_signal_connect(adjustment, "value-changed", G_CALLBACK(OnLightChanged), &s);

    const GimpRGB rgb = RgbOf(a.color);
    s.color = gimp_color_button_new("Light Color", 40, 20, &rgb, GIMP_COLOR_AREA_FLAT);
    gimp_color_button_set_update(GIMP_COLOR_BUTTON(s.color), TRUE);
    gimp_table_attach_aligned(GTK_TABLE(table), 0, 3, "Light _color:", 0.0, 0.5, Natural(s.color), 1, TRUE);
    g_signal_connect(s.color, "color-changed", G_CALLBACK(OnLightChanged), &s);

    s.blend = gimp_int_combo_box_new("Display", int(engine::Blend::display), "Add", int(engine::Blend::add), "Screen",
                                     int(engine::Blend::screen), nullptr);
    gimp_int_combo_box_set_active(GIMP_INT_COMBO_BOX(s.blend), int(BlendOf(a.blend)));
    gimp_table_attach_aligned(GTK_TABLE(table), 0, 4, "_Blend:", 0.0, 0.5, Natural(s.blend), 2, FALSE);
    g_signal_connect(s.blend, "changed", G_CALLBACK(OnLightChanged), &s);

    s.flareOnly = gtk_check_button_new_with_mnemonic("_Flare only, on a new layer");
    gtk_toggle_button_set_active(GTK_TOGGLE_BUTTON(s.flareOnly), a.flareOnly);
    gtk_table_attach(GTK_TABLE(table), s.flareOnly, 0, 3, 5, 6, GTK_FILL, GTK_FILL, 0, 0);
    g_signal_connect(s.flareOnly, "toggled", G_CALLBACK(OnLightChanged), &s);
    return Page(table);
}

// ---- The look page ----

std::string LookText(const engine::SheetLook& look) {
    gchar* text = g_markup_printf_escaped("%s\n<small>%s</small>", look.label.c_str(),
                                          look.lens.empty() ? "Flare table" : "The lens's own flare");
    std::string out = text;
    g_free(text);
    return out;
}

// The drawable as GIMP keeps it small (within 96x54, in its own shape), as float display levels:
// the plate every look's thumbnail is painted on, so that the list shows each look on this image.
OIIO::ImageBuf ThumbnailPlate(gint32 drawable) {
    gint width = kThumbWidth, height = kThumbHeight, bpp = 0;
    guchar* data = gimp_drawable_get_thumbnail_data(drawable, &width, &height, &bpp);
    if (data == nullptr || bpp < 3) {   // RGB drawables only come here; black if GIMP has none
        g_free(data);
        return OIIO::ImageBuf(OIIO::ImageSpec(kThumbWidth, kThumbHeight, 3, OIIO::TypeFloat), OIIO::InitializePixels::Yes);
    }
    const OIIO::ImageBuf wrapped(OIIO::ImageSpec(width, height, bpp, OIIO::TypeUInt8), data);
    OIIO::ImageBuf plate(OIIO::ImageSpec(width, height, 3, OIIO::TypeFloat));
    OIIO::ImageBufAlgo::channels(plate, wrapped, 3, {0, 1, 2});
    g_free(data);
    return plate;
}

// The look's flare painted small on the drawable's thumbnail, the light where the dialog has it.
GdkPixbuf* Thumbnail(const engine::SheetLook& look, const OIIO::ImageBuf& plate, const DialogState& s) {
    engine::FlareSetup setup;
    setup.plugin = engine::FindPlugin("");
    setup.table = look.table;
    if (!look.lens.empty()) {
        setup.lens.emplace();
        setup.lens->lens = look.lens;
    }
    engine::Flare flare(setup);
    const int width = plate.spec().width, height = plate.spec().height;
    engine::FlareLight light;
    light.x = (s.arguments.lightX - s.offsetX) * width / std::max(1, s.width);
    light.y = (s.arguments.lightY - s.offsetY) * height / std::max(1, s.height);
    const OIIO::ImageBuf painted = engine::PaintCell(flare, plate, {width, height}, light);
    GdkPixbuf* thumb = gdk_pixbuf_new(GDK_COLORSPACE_RGB, FALSE, 8, width, height);
    const OIIO::ROI rgb(0, width, 0, height, 0, 1, 0, 3);
    painted.get_pixels(rgb, OIIO::TypeUInt8, gdk_pixbuf_get_pixels(thumb), 3, gdk_pixbuf_get_rowstride(thumb));
    flare.Finish();
    return thumb;
}

// One thumbnail each time GTK is idle, so the list shows at once and fills in.
gboolean PaintNextThumbnail(gpointer data) {
    auto& s = *static_cast<DialogState*>(data);
    if (s.nextThumb >= s.looks.size()) {
        s.thumbSource = 0;
        return FALSE;
    }
    const size_t k = s.nextThumb++;
    GtkTreeIter row;
    if (!gtk_tree_model_iter_nth_child(GTK_TREE_MODEL(s.lookStore), &row, nullptr, gint(k))) return TRUE;
    try {
        if (!s.thumbPlate) s.thumbPlate = ThumbnailPlate(s.drawable);
        GdkPixbuf* thumb = Thumbnail(s.looks[k], *s.thumbPlate, s);
        gtk_list_store_set(s.lookStore, &row, kThumbColumn, thumb, -1);
        g_object_unref(thumb);
    } catch (const std::exception&) {
        // a look that cannot be painted keeps an empty thumbnail; choosing it shows why
    }
    return TRUE;
}

bool IsChosen(const engine::SheetLook& look, const FlareArguments& a) {
    if (!a.lens.empty()) return look.lens == a.lens;
    const std::string table = a.table.empty() ? engine::kDefaultTableName : a.table;
    return look.lens.empty() && g_ascii_strcasecmp(look.table.c_str(), table.c_str()) == 0;
}

void SelectChosenLook(DialogState& s) {
    GtkTreeSelection* selection = gtk_tree_view_get_selection(GTK_TREE_VIEW(s.lookView));
    gtk_tree_selection_unselect_all(selection);
    for (size_t k = 0; k < s.looks.size(); ++k) {
        if (!IsChosen(s.looks[k], s.arguments)) continue;
        GtkTreePath* path = gtk_tree_path_new_from_indices(gint(k), -1);
        gtk_tree_selection_select_path(selection, path);
        gtk_tree_view_scroll_to_cell(GTK_TREE_VIEW(s.lookView), path, nullptr, FALSE, 0.0, 0.0);
        gtk_tree_path_free(path);
        return;
    }
}

void OnLookChosen(GtkTreeSelection* selection, gpointer data) {
    auto& s = *static_cast<DialogState*>(data);
    GtkTreeModel* model = nullptr;
    GtkTreeIter row;
    if (s.quiet || !gtk_tree_selection_get_selected(selection, &model, &row)) return;
    gint k = 0;
    gtk_tree_model_get(model, &row, kLookIndexColumn, &k, -1);
    s.arguments.table = s.looks[size_t(k)].table;
    s.arguments.lens = s.looks[size_t(k)].lens;
    Redraw(s);
}

void ShowSettings(DialogState& s);

void OnSettingsFileSet(GtkFileChooserButton* button, gpointer data) {
    auto& s = *static_cast<DialogState*>(data);
    gchar* file = gtk_file_chooser_get_filename(GTK_FILE_CHOOSER(button));
    const std::string path = file != nullptr ? file : "";
    g_free(file);
    try {
        s.base = BaseSettings(path);
        s.settings = FullSettings(s.base, "");
        s.arguments.settingsFile = path;
        ShowSettings(s);
    } catch (const std::exception& error) {
        g_message("Vellux Lens Flare: %s", error.what());
    }
    Redraw(s);
}

GtkWidget* LookPage(DialogState& s) {
    GtkWidget* box = gtk_vbox_new(FALSE, 6);
    gtk_container_set_border_width(GTK_CONTAINER(box), 12);
    s.lookStore = gtk_list_store_new(kLookColumns, GDK_TYPE_PIXBUF, G_TYPE_STRING, G_TYPE_INT);
    for (size_t k = 0; k < s.looks.size(); ++k) {
        GtkTreeIter row;
        gtk_list_store_append(s.lookStore, &row);
        gtk_list_store_set(s.lookStore, &row, kTextColumn, LookText(s.looks[k]).c_str(), kLookIndexColumn, gint(k), -1);
    }
    s.lookView = gtk_tree_view_new_with_model(GTK_TREE_MODEL(s.lookStore));
    g_object_unref(s.lookStore);
    gtk_tree_view_set_headers_visible(GTK_TREE_VIEW(s.lookView), FALSE);
    GtkCellRenderer* thumb = gtk_cell_renderer_pixbuf_new();
    gtk_cell_renderer_set_fixed_size(thumb, kThumbWidth + 4, kThumbHeight + 4);
    gtk_tree_view_insert_column_with_attributes(GTK_TREE_VIEW(s.lookView), -1, nullptr, thumb, "pixbuf", kThumbColumn,
                                                nullptr);
    gtk_tree_view_insert_column_with_attributes(GTK_TREE_VIEW(s.lookView), -1, nullptr, gtk_cell_renderer_text_new(),
                                                "markup", kTextColumn, nullptr);
    GtkWidget* scrolled = gtk_scrolled_window_new(nullptr, nullptr);
    gtk_scrolled_window_set_policy(GTK_SCROLLED_WINDOW(scrolled), GTK_POLICY_NEVER, GTK_POLICY_AUTOMATIC);
    gtk_scrolled_window_set_shadow_type(GTK_SCROLLED_WINDOW(scrolled), GTK_SHADOW_IN);
    gtk_widget_set_size_request(scrolled, -1, 3 * (kThumbHeight + 8));
    gtk_container_add(GTK_CONTAINER(scrolled), s.lookView);
    gtk_box_pack_start(GTK_BOX(box), scrolled, TRUE, TRUE, 0);
    GtkTreeSelection* selection = gtk_tree_view_get_selection(GTK_TREE_VIEW(s.lookView));
    gtk_tree_selection_set_mode(selection, GTK_SELECTION_BROWSE);
    g_signal_connect(selection, "changed", G_CALLBACK(OnLookChosen), &s);

    GtkWidget* fileRow = gtk_hbox_new(FALSE, 6);
    GtkWidget* label = gtk_label_new_with_mnemonic("Settings _file:");
    s.settingsFile = gtk_file_chooser_button_new("Vellux Settings File", GTK_FILE_CHOOSER_ACTION_OPEN);
    gtk_label_set_mnemonic_widget(GTK_LABEL(label), s.settingsFile);
    if (!s.arguments.settingsFile.empty())
        gtk_file_chooser_set_filename(GTK_FILE_CHOOSER(s.settingsFile), s.arguments.settingsFile.c_str());
    gimp_help_set_help_data(s.settingsFile, "A saved settings file to start the settings from", nullptr);
    g_signal_connect(s.settingsFile, "file-set", G_CALLBACK(OnSettingsFileSet), &s);
    gtk_box_pack_start(GTK_BOX(fileRow), label, FALSE, FALSE, 0);
    gtk_box_pack_start(GTK_BOX(fileRow), s.settingsFile, TRUE, TRUE, 0);
    gtk_box_pack_start(GTK_BOX(box), fileRow, FALSE, FALSE, 0);
    return box;
}

// ---- The settings page ----

void OnSettingChanged(GtkWidget*, gpointer data) {
    auto& s = *static_cast<DialogState*>(data);
    if (s.quiet) return;
    for (const SettingWidget& w : s.settingWidgets) {
        const engine::SettingName& setting = *w.setting;
        switch (setting.kind) {
        case engine::SettingKind::number:
            engine::SetEdit(setting, gtk_adjustment_get_value(GTK_ADJUSTMENT(w.adjustment)), s.settings);
            break;
        case engine::SettingKind::whole:
            engine::SetEdit(setting, int32_t(std::lround(gtk_adjustment_get_value(GTK_ADJUSTMENT(w.adjustment)))),
                            s.settings);
            break;
        case engine::SettingKind::color: engine::SetEdit(setting, ColorOf(w.widget), s.settings); break;
        case engine::SettingKind::onOff:
            engine::SetEdit(setting, bool(gtk_toggle_button_get_active(GTK_TOGGLE_BUTTON(w.widget))), s.settings);
            break;
        }
    }
    Redraw(s);
}

// A number's scale entry: its slider's span, typed values as far as its range allows.
GtkObject* NumberEntry(DialogState& s, GtkWidget* table, int row, const engine::SettingName& setting) {
    const engine::SliderSpan* span = engine::FindSettingSlider(setting.name);
    const double lower = span ? span->min : 0.0, upper = span ? span->max : 1.0;
    const bool whole = setting.kind == engine::SettingKind::whole;
    const double step = whole ? 1.0 : (upper - lower) / 100.0;
    const int digits = whole ? 0 : (upper - lower <= 1.0 ? 3 : upper - lower <= 10.0 ? 2 : 1);
    const double farLower = std::isfinite(setting.min) ? setting.min : -kFarOff;
    const double farUpper = std::isfinite(setting.max) ? setting.max : kFarOff;
    const std::string tip(setting.meaning);
    GtkObject* adjustment = ScaleEntry(table, row, LabelOf(setting.name), lower, lower, upper, step, digits, farLower,
                                       farUpper, tip.c_str());
    g_signal_connect(adjustment, "value-changed", G_CALLBACK(OnSettingChanged), &s);
    return adjustment;
}

GtkWidget* SettingsPage(DialogState& s) {
    GtkWidget* box = gtk_vbox_new(FALSE, 12);
    GtkWidget* numbers = gtk_table_new(1, 3, FALSE);
    gtk_table_set_col_spacings(GTK_TABLE(numbers), 6);
    gtk_table_set_row_spacings(GTK_TABLE(numbers), 2);
    GtkWidget* switches = gtk_table_new(1, 2, TRUE);
    gtk_table_set_col_spacings(GTK_TABLE(switches), 12);
    int numberRow = 0, switchCount = 0;
    for (const engine::SettingName& setting : engine::SettingNames()) {
        SettingWidget w{&setting};
        const std::string tip(setting.meaning);
        switch (setting.kind) {
        case engine::SettingKind::number:
        case engine::SettingKind::whole: w.adjustment = NumberEntry(s, numbers, numberRow++, setting); break;
        case engine::SettingKind::color: {
            const GimpRGB black = RgbOf({0, 0, 0});
            w.widget = gimp_color_button_new("Ring Color", 40, 20, &black, GIMP_COLOR_AREA_FLAT);
            gimp_color_button_set_update(GIMP_COLOR_BUTTON(w.widget), TRUE);
            gimp_help_set_help_data(w.widget, tip.c_str(), nullptr);
            gimp_table_attach_aligned(GTK_TABLE(numbers), 0, numberRow++, LabelOf(setting.name).c_str(), 0.0, 0.5,
                                      Natural(w.widget), 1, TRUE);
            g_signal_connect(w.widget, "color-changed", G_CALLBACK(OnSettingChanged), &s);
            break;
        }
        case engine::SettingKind::onOff: {
            // wireframe-preview shapes only the plug-in's own settings dialog, not the flare
            if (setting.name == "wireframe-preview") continue;
            std::string label = LabelOf(setting.name);
            label.pop_back();   // a check button's label has no colon
            w.widget = gtk_check_button_new_with_mnemonic(label.c_str());
            gimp_help_set_help_data(w.widget, tip.c_str(), nullptr);
            const int column = switchCount % 2, row = switchCount / 2;
            gtk_table_attach(GTK_TABLE(switches), w.widget, column, column + 1, row, row + 1, GTK_FILL, GTK_FILL, 0, 0);
            ++switchCount;
            g_signal_connect(w.widget, "toggled", G_CALLBACK(OnSettingChanged), &s);
            break;
        }
        }
        s.settingWidgets.push_back(w);
    }
    gtk_box_pack_start(GTK_BOX(box), numbers, FALSE, FALSE, 0);
    GtkWidget* frame = gimp_frame_new("Elements");
    gtk_container_add(GTK_CONTAINER(frame), switches);
    gtk_box_pack_start(GTK_BOX(box), frame, FALSE, FALSE, 0);
    return Page(box);
}

// The settings' widgets set from s.settings.
void ShowSettings(DialogState& s) {
    s.quiet = true;
    for (const SettingWidget& w : s.settingWidgets) {
        const auto value = engine::EditOf(*w.setting, s.settings);
        if (!value) continue;
        if (const auto* number = std::get_if<double>(&*value)) SetAdjustment(w.adjustment, *number);
        else if (const auto* whole = std::get_if<int32_t>(&*value)) SetAdjustment(w.adjustment, *whole);
        else if (const auto* color = std::get_if<engine::LightColor>(&*value)) {
            const GimpRGB rgb = RgbOf(*color);
            gimp_color_button_set_color(GIMP_COLOR_BUTTON(w.widget), &rgb);
        } else {
            gtk_toggle_button_set_active(GTK_TOGGLE_BUTTON(w.widget), std::get<bool>(*value));
        }
    }
    s.quiet = false;
}

// Every widget set from the state (after Reset).
void ShowState(DialogState& s) {
    s.quiet = true;
    SetAdjustment(s.lightX, s.arguments.lightX);
    SetAdjustment(s.lightY, s.arguments.lightY);
    SetAdjustment(s.intensity, s.arguments.intensity);
    const GimpRGB rgb = RgbOf(s.arguments.color);
    gimp_color_button_set_color(GIMP_COLOR_BUTTON(s.color), &rgb);
    gimp_int_combo_box_set_active(GIMP_INT_COMBO_BOX(s.blend), int(BlendOf(s.arguments.blend)));
    gtk_toggle_button_set_active(GTK_TOGGLE_BUTTON(s.flareOnly), s.arguments.flareOnly);
    gtk_file_chooser_unselect_all(GTK_FILE_CHOOSER(s.settingsFile));
    SelectChosenLook(s);
    s.quiet = false;
    ShowSettings(s);
}

void Reset(DialogState& s) {
    s.arguments = DefaultArguments(gimp_image_width(s.image), gimp_image_height(s.image));
    s.base = BaseSettings("");
    s.settings = FullSettings(s.base, "");
    ShowState(s);
    Redraw(s);
}

// ---- The dialog ----

// Larger than GIMP's usual preview, in the drawable's shape. Set once the preview has taken its
// size from the style (which it does when shown).
void SizePreview(DialogState& s) {
    const double aspect = double(s.width) / std::max(1, s.height);
    const int width = aspect >= double(kPreviewWidth) / kPreviewHeight ? kPreviewWidth : int(kPreviewHeight * aspect);
    const int height = int(std::lround(width / aspect));
    gtk_widget_set_size_request(gimp_preview_get_area(GIMP_PREVIEW(s.preview)), std::max(width, 16),
                                std::max(height, 16));
}

GtkWidget* PreviewOf(DialogState& s) {
    s.preview = gimp_zoom_preview_new_from_drawable_id(s.drawable);
    GtkWidget* area = gimp_preview_get_area(GIMP_PREVIEW(s.preview));
    gtk_widget_add_events(area, GDK_BUTTON_PRESS_MASK | GDK_BUTTON1_MOTION_MASK);
    g_signal_connect(area, "event", G_CALLBACK(OnPreviewPointer), &s);
    g_signal_connect(s.preview, "invalidated", G_CALLBACK(OnPreviewInvalidated), &s);
    return s.preview;
}

GtkWidget* Notebook(DialogState& s) {
    GtkWidget* notebook = gtk_notebook_new();
    gtk_notebook_append_page(GTK_NOTEBOOK(notebook), LightPage(s), gtk_label_new_with_mnemonic("_Light"));
    gtk_notebook_append_page(GTK_NOTEBOOK(notebook), LookPage(s), gtk_label_new_with_mnemonic("Loo_k"));
    gtk_notebook_append_page(GTK_NOTEBOOK(notebook), SettingsPage(s), gtk_label_new_with_mnemonic("_Settings"));
    return notebook;
}

GtkWidget* MakeDialog(DialogState& s) {
    GtkWidget* dialog = gimp_dialog_new("Vellux Lens Flare", "vellux-flare", nullptr, GtkDialogFlags(0),
                                        gimp_standard_help_func, kHelpId, "_Reset", kResponseReset, "_Cancel",
                                        GTK_RESPONSE_CANCEL, "_OK", GTK_RESPONSE_OK, nullptr);
    gtk_dialog_set_alternative_button_order(GTK_DIALOG(dialog), kResponseReset, GTK_RESPONSE_OK, GTK_RESPONSE_CANCEL,
                                            -1);
    gtk_dialog_set_default_response(GTK_DIALOG(dialog), GTK_RESPONSE_OK);
    gimp_window_set_transient(GTK_WINDOW(dialog));
    GtkWidget* main = gtk_hbox_new(FALSE, 12);
    gtk_container_set_border_width(GTK_CONTAINER(main), 12);
    gtk_box_pack_start(GTK_BOX(gtk_dialog_get_content_area(GTK_DIALOG(dialog))), main, TRUE, TRUE, 0);
    GtkWidget* left = gtk_vbox_new(FALSE, 6);
    gtk_box_pack_start(GTK_BOX(left), PreviewOf(s), TRUE, TRUE, 0);
    s.problem = gtk_label_new("");
    gtk_label_set_line_wrap(GTK_LABEL(s.problem), TRUE);
    gtk_misc_set_alignment(GTK_MISC(s.problem), 0.0, 0.5);
    gimp_label_set_attributes(GTK_LABEL(s.problem), PANGO_ATTR_STYLE, PANGO_STYLE_ITALIC, -1);
    gtk_box_pack_start(GTK_BOX(left), s.problem, FALSE, FALSE, 0);
    gtk_box_pack_start(GTK_BOX(main), left, TRUE, TRUE, 0);
    gtk_box_pack_start(GTK_BOX(main), Notebook(s), FALSE, FALSE, 0);
    gtk_widget_show_all(dialog);
    gtk_widget_hide(s.problem);
    SizePreview(s);
    return dialog;
}

}  // namespace

bool RunFlareDialog(gint32 image, gint32 drawable, FlareArguments& arguments) {
    gimp_ui_init("vellux-flare", TRUE);
    DialogState s;
    s.image = image, s.drawable = drawable;
    gimp_drawable_offsets(drawable, &s.offsetX, &s.offsetY);
    s.width = gimp_drawable_width(drawable), s.height = gimp_drawable_height(drawable);
    s.arguments = arguments;
    try {
        s.base = BaseSettings(arguments.settingsFile);
        s.settings = FullSettings(s.base, arguments.settings);
    } catch (const std::exception& error) {
        // last values that no longer read (a settings file gone): start from the defaults
        g_message("Vellux Lens Flare: %s; the default settings are used", error.what());
        s.arguments.settingsFile.clear(), s.arguments.settings.clear();
        s.base = BaseSettings("");
        s.settings = FullSettings(s.base, "");
    }
    try {
        s.looks = engine::SheetLooks();
    } catch (const std::exception& error) {
        g_message("Vellux Lens Flare: %s", error.what());
    }

    GtkWidget* dialog = MakeDialog(s);
    ShowState(s);
    s.thumbSource = g_idle_add(PaintNextThumbnail, &s);
    gint response = kResponseReset;
    while ((response = gimp_dialog_run(GIMP_DIALOG(dialog))) == kResponseReset) Reset(s);
    if (s.thumbSource != 0) g_source_remove(s.thumbSource);
    gtk_widget_destroy(dialog);
    if (response != GTK_RESPONSE_OK) return false;
    s.arguments.settings = ChangedSettingsText(s.base, s.settings);
    arguments = s.arguments;
    return true;
}

}  // namespace vellux::gimp
