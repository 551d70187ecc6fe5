#pragma once

#include "tools/queuectl/page/html.h"
#include "tools/queuectl/page/pagevalues.h"

namespace queuectl {

// The sections of a page that have charts or lists, in their order.

void writeFlow(Html &html, const PageValues &page);
void writeWaiting(Html &html, const PageValues &page);
void writeDestinations(Html &html, const PageValues &page);
void writeDropped(Html &html, const PageValues &page);

/// Opens a section with its heading.
void openSection(Html &html, const QString &title);
/// A sentence in a paragraph; `tone` is a class of the page's style.
void writeSentence(Html &html, const QString &sentence, const char *tone = "note");
/// That a list has left something out; nothing for 0.
void writeFurther(Html &html, int count);

} // namespace queuectl
