// Text-file line ends: rewriting a file so that every line ends with one line feed,
// and cleaning the whitespace of one line held in a character buffer.
//
// Thread-safe as long as two calls do not work on the same file: no shared state.
#ifndef TAVIK_SUPPORT_TEXT_FILE_H_
#define TAVIK_SUPPORT_TEXT_FILE_H_

namespace tk {

// Rewrites `path` in place with LF line ends: one CR before each LF goes and a last
// line without a line end gets one. The work goes through the sibling temporary
// `path` + ".tktmpascii", copied back over the file, so the file keeps its
// permissions; the temporary is removed on every way out. A file whose first line
// has no LF (empty, a single line, or a first line of 65529 bytes or more) is not
// taken for text and is left alone. Lines longer than 65528 bytes are split, each
// piece ending with an LF. Failures leave the file as it was, except a failure of
// the final copy back, which can leave it partly overwritten. Nothing is reported.
void ConvertTextFile(const char* path);

// Cleans the NUL-terminated `buffer` in place: tabs and LFs count as spaces, CRs are
// dropped, leading spaces go, a space goes when `removeAllSpaces`, or when
// `collapseSpaces` and the input byte before it is (or became) a space; then one
// trailing space goes. The collapse looks at the input, so a space after a dropped
// CR is kept: " \r " between words leaves two spaces. Null or "" is left alone, as
// is the buffer when no work memory can be had.
void TrimWhitespaceBuffer(char* buffer, bool removeAllSpaces, bool collapseSpaces);

}  // namespace tk

#endif  // TAVIK_SUPPORT_TEXT_FILE_H_
