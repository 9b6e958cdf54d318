#pragma once

#include <pango/pangocairo.h>

#include <memory>

namespace tessarin::typesetting {

struct Release {
  void operator()(cairo_t* it) const { cairo_destroy(it); }
  void operator()(cairo_font_options_t* it) const { cairo_font_options_destroy(it); }
  void operator()(PangoAttrList* it) const { pango_attr_list_unref(it); }
  void operator()(PangoFontDescription* it) const { pango_font_description_free(it); }
  void operator()(PangoScriptIter* it) const { pango_script_iter_free(it); }
  void operator()(gchar* it) const { g_free(it); }
  // The counted objects of the library.
  template<class Object> void operator()(Object* it) const { g_object_unref(it); }
};

// What the libraries hand over to be released.
template<class Object> using Handle = std::unique_ptr<Object, Release>;

} // namespace tessarin::typesetting
