#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "zam_connector/zam_converter.h"
#include "zam_connector_testing/recording_logger.h"
#include "zuv/zuv.h"

namespace zam_connector::test {

/// The identifier whose bytes are `first`, `first` + 1 and so on.
ZamId MakeId(unsigned char first);

/// The 17 bytes of `MakeId(first)` in a tree.
zuv::Blob MakeIdBlob(unsigned char first);

/// Records in which every field differs from the others of its kind and from its default, and
/// their trees.
UpdateInfo SampleUpdate();
zuv::TValue SampleUpdateTree();
UpdateStatusInfo SampleStatus();
zuv::TValue SampleStatusTree();
AppEula SampleEula();
/// With the text "Text of the agreement" in pieces of 8 bytes.
zuv::TValue SampleEulaTree();

/// A value of each of the sixteen kinds, in their order. Containers are not empty.
std::vector<zuv::TValue> ValuesOfAllKinds();

/// `tree` without a key, and with another value under a key.
zuv::TValue Without(zuv::TValue tree, const std::string& key);
zuv::TValue With(zuv::TValue tree, const std::string& key, zuv::TValue value);

/// A key of a record's tree.
struct KeyRow {
    const char* key;
    std::vector<zuv::Kind> kinds;  ///< that the value may be of
    bool required = true;
};

/// A record as in "4 file Function: text", with "#" for line numbers in parentheses.
std::string Line(const testing::LogRecord& record);

/// The text of the exception record for a node of the wrong kind.
std::string BadKindText(const std::string& operation, zuv::Kind actual, zuv::Kind wanted);

/// What is logged, at level 4, when a key is absent that may be, and that may not be.
std::string AbsentOptionalLine(const std::string& key);
std::string AbsentLine(const std::string& key);
/// What follows it from the parser, in `file`.
std::string NotFoundLine(const std::string& file, const std::string& operation);
/// What is logged when the value of a key is rejected, and what follows it.
std::string ParseErrorLine(const std::string& key);
std::string RejectedLine(const std::string& file, const std::string& operation);

/// Records what the converters log. Every test takes what it expects; the rest fails it.
class ConverterTest : public ::testing::Test {
protected:
    ~ConverterTest() override { EXPECT_THAT(TakeLines(), ::testing::IsEmpty()); }

    /// The records since the last call, as `Line`s.
    std::vector<std::string> TakeLines();

    /// Checks the records since the last call, which are all of level 4 and tell a line.
    void ExpectLines(const std::vector<std::string>& lines);

    /// Where a parser's own records come from.
    struct Parser {
        std::string file;
        std::string operation;
    };

    /// Checks that `parse` fails on `tree`, logging `lines`.
    template <typename Parse>
    void ExpectFails(Parse&& parse, const zuv::TValue& tree,
                     const std::vector<std::string>& lines) {
        EXPECT_FALSE(parse(tree)) << tree;
        ExpectLines(lines);
    }

    /// Checks that a node that is no map, of any kind or none, fails.
    template <typename Parse>
    void ExpectOnlyMaps(const Parser& parser, Parse&& parse) {
        for (const zuv::TValue& value : ValuesOfAllKinds()) {
            if (!value.Is<zuv::Map>()) {
                ExpectFails(parse, value, {BadKind(parser, value.Kind(), zuv::Kind::Map)});
            }
        }
    }

    /// Checks that each key which has to be there is missed, and the first of them only.
    template <typename Parse>
    void ExpectKeysRequired(const Parser& parser, Parse&& parse, const zuv::TValue& tree,
                            const std::vector<KeyRow>& rows) {
        zuv::TValue rest = tree;
        for (auto row = rows.rbegin(); row != rows.rend(); ++row) {
            if (!row->required) {
                continue;
            }
            const std::vector<std::string> lines{AbsentLine(row->key),
                                                 NotFoundLine(parser.file, parser.operation)};
            ExpectFails(parse, Without(tree, row->key), lines);
            // And with all the keys behind it absent too.
            rest = Without(rest, row->key);
            ExpectFails(parse, rest, lines);
        }
    }

    /// Checks each key with values of all kinds but its own.
    template <typename Parse>
    void ExpectKindsRequired(const Parser& parser, Parse&& parse, const zuv::TValue& tree,
                             const std::vector<KeyRow>& rows) {
        for (const KeyRow& row : rows) {
            for (const zuv::TValue& value : ValuesOfAllKinds()) {
                if (::testing::Value(row.kinds, ::testing::Contains(value.Kind()))) {
                    continue;
                }
                SCOPED_TRACE(row.key);
                ExpectFails(parse, With(tree, row.key, value),
                            {BadKind(parser, value.Kind(), row.kinds.front())});
            }
        }
    }

    /// Checks that of two wrong keys the one that stands first is met, and ends the parse.
    template <typename Parse>
    void ExpectKeysReadInOrder(const Parser& parser, Parse&& parse, const zuv::TValue& tree,
                               const std::vector<KeyRow>& rows) {
        for (std::size_t first = 0; first < rows.size(); ++first) {
            for (std::size_t second = first + 1; second < rows.size(); ++second) {
                SCOPED_TRACE(std::string(rows[first].key) + " before " + rows[second].key);
                ExpectFails(parse,
                            With(With(tree, rows[first].key, 1.5), rows[second].key, zuv::None()),
                            {BadKind(parser, zuv::Kind::Double, rows[first].kinds.front())});
            }
        }
    }

    static std::string BadKind(const Parser& parser, zuv::Kind actual, zuv::Kind wanted) {
        return "4 " + parser.file + " " + parser.operation + ": " +
               BadKindText(parser.operation, actual, wanted);
    }

private:
    testing::RecordingLogger logger_;
};

}  // namespace zam_connector::test
