#pragma once

#include <iosfwd>
#include <string>

#include "fields.h"

namespace zamctl {

/// A document as one line, its end included; as `JsonText`.
std::string JsonLine(const Fields& document);

/// Where a command's results go: one text, or one JSON document in a line. One thread at a time.
class Output {
public:
    struct Format {
        bool json = false;
        bool quiet = false;  ///< leave out what only confirms or details
    };

    /// `out` must outlive the object.
    Output(std::ostream& out, Format format) : out_(out), format_(format) {}

    /// What was asked for; `text` goes without its last line end.
    void Result(const std::string& text, const Fields& document);

    /// That something was done: the text is left out with --quiet, the document is not.
    void Confirmation(const std::string& text, const Fields& document);

    /// One of many lines that a summary will follow: left out with --quiet in both forms.
    void Detail(const std::string& text, const Fields& document);

    /// What was asked for, in the form that it shall have, its last line end included.
    void Content(const std::string& content);

    /// False once something could not be written.
    bool IsGood() const;

    bool IsJson() const noexcept { return format_.json; }
    bool IsQuiet() const noexcept { return format_.quiet; }

private:
    void Print(const std::string& text, const Fields& document);

    std::ostream& out_;
    Format format_;
};

}  // namespace zamctl
