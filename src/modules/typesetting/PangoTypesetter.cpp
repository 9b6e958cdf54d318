#include "modules/typesetting/PangoTypesetter.hpp"

#include "modules/typesetting/PangoLine.hpp"

namespace tessarin::typesetting {

namespace {

Handle<PangoContext> makeContext(PangoFontMap& fonts) {
  Handle<PangoContext> context(pango_font_map_create_context(&fonts));
  const Handle<cairo_font_options_t> options(cairo_font_options_create());
  cairo_font_options_set_antialias(options.get(), CAIRO_ANTIALIAS_GRAY);
  cairo_font_options_set_hint_style(options.get(), CAIRO_HINT_STYLE_NONE);
  cairo_font_options_set_hint_metrics(options.get(), CAIRO_HINT_METRICS_OFF);
  pango_cairo_context_set_font_options(context.get(), options.get());
  pango_context_set_round_glyph_positions(context.get(), FALSE);
  // The fonts shall not depend on the language of whoever has started the program.
  pango_context_set_language(context.get(), pango_language_from_string("en"));
  return context;
}

Handle<PangoFontDescription> describe(const FontDescription& font) {
  Handle<PangoFontDescription> description(pango_font_description_new());
  pango_font_description_set_family(description.get(), font.family.c_str());
  pango_font_description_set_weight(description.get(), font.isBold ? PANGO_WEIGHT_BOLD : PANGO_WEIGHT_NORMAL);
  pango_font_description_set_absolute_size(description.get(), font.size * PANGO_SCALE);
  return description;
}

Handle<PangoLayout> layOut(PangoContext& context, const PangoFontDescription& font, const gchar* text) {
  Handle<PangoLayout> layout(pango_layout_new(&context));
  pango_layout_set_single_paragraph_mode(layout.get(), TRUE);
  pango_layout_set_font_description(layout.get(), &font);
  pango_layout_set_text(layout.get(), text, -1);
  return layout;
}

// By a letter, since not every font tells it.
double capitalHeight(PangoContext& context, const PangoFontDescription& font) {
  const Handle<PangoLayout> layout = layOut(context, font, "H");
  PangoRectangle ink{};
  pango_layout_line_get_extents(pango_layout_get_line_readonly(layout.get(), 0), &ink, nullptr);
  return static_cast<double>(PANGO_ASCENT(ink)) / PANGO_SCALE;
}

// Calls for each stretch of text in one script, with the offsets in bytes of its ends.
template<class Call> void forEachScript(const gchar* text, const Call& call) {
  const Handle<PangoScriptIter> runs(pango_script_iter_new(text, -1));
  do {
    const char* begin = nullptr;
    const char* end = nullptr;
    PangoScript script = PANGO_SCRIPT_COMMON;
    pango_script_iter_get_range(runs.get(), &begin, &end, &script);
    call(script, static_cast<guint>(begin - text), static_cast<guint>(end - text));
  } while (pango_script_iter_next(runs.get()));
}

const char* languageOfHan(const gchar* text) {
  const char* language = "zh-cn";
  forEachScript(text, [&](PangoScript script, guint, guint) {
    if (script == PANGO_SCRIPT_HIRAGANA || script == PANGO_SCRIPT_KATAKANA)
      language = "ja";
    if (script == PANGO_SCRIPT_HANGUL)
      language = "ko";
  });
  return language;
}

// Han characters are drawn as China, Japan and Korea each write them. Without a word about it the library
// takes whichever font comes first, which is a Japanese one; text that holds no kana and no hangul is taken
// for simplified Chinese. Only the Han letters are marked: a language that is named chooses the font of Latin
// letters too, where the wanted family is not installed.
Handle<PangoAttrList> languages(const gchar* text) {
  Handle<PangoAttrList> attributes(pango_attr_list_new());
  const char* const language = languageOfHan(text);
  forEachScript(text, [&](PangoScript script, guint begin, guint end) {
    if (script != PANGO_SCRIPT_HAN)
      return;
    PangoAttribute* const attribute = pango_attr_language_new(pango_language_from_string(language));
    attribute->start_index = begin;
    attribute->end_index = end;
    pango_attr_list_insert(attributes.get(), attribute);
  });
  return attributes;
}

} // namespace

PangoTypesetter::PangoTypesetter() : stock_(std::make_shared<FontStock>()) {
  stock_->fonts.reset(pango_cairo_font_map_new());
}

std::unique_ptr<TypesetLine> PangoTypesetter::typesetLine(const std::string& text,
                                                          const FontDescription& font) {
  const std::lock_guard lock(stock_->mutex);
  const Handle<PangoContext> context = makeContext(*stock_->fonts);
  const Handle<PangoFontDescription> description = describe(font);
  if (!Handle<PangoFont>(pango_context_load_font(context.get(), description.get())))
    throw TypesettingFailure();
  const Handle<gchar> validText(g_utf8_make_valid(text.data(), static_cast<gssize>(text.size())));
  Handle<PangoLayout> layout = layOut(*context, *description, validText.get());
  pango_layout_set_attributes(layout.get(), languages(validText.get()).get());
  return std::make_unique<PangoLine>(stock_, std::move(layout), capitalHeight(*context, *description));
}

} // namespace tessarin::typesetting
