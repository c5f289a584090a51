#pragma once

#include <QFont>
#include <string_view>

namespace kestravine {

// The height a log row of `text` takes in the monospaced `font`, wrapped at `width`, estimated
// from its length in columns (one a character, two an East Asian wide one, tabs to the next
// eighth column) rather than laid out: a row out of view costs no glyph layout, however long.
// Stateless; GUI thread (fonts).
int estimatedRowHeight(std::string_view text, const QFont& font, int width);

}  // namespace kestravine
