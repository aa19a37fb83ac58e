#include "diff/JsonReport.h"

#include <cmath>
#include <cstdio>

#include "diff/NumberText.h"

namespace ZolDiff {

namespace {

// Length of the well-formed UTF-8 sequence at text[at], or 0.
size_t Utf8Length(const std::string& text, size_t at) {
    const auto byte = [&](size_t k) { return static_cast<unsigned char>(text[at + k]); };
    const unsigned char lead = byte(0);
    size_t length = 0;
    uint32_t code = 0;
    if (lead >= 0xC2 && lead <= 0xDF) {
        length = 2, code = lead & 0x1Fu;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        length = 3, code = lead & 0x0Fu;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        length = 4, code = lead & 0x07u;
    } else {
        return 0;
    }
    if (at + length > text.size()) return 0;
    for (size_t k = 1; k < length; ++k) {
        if ((byte(k) & 0xC0u) != 0x80u) return 0;
        code = (code << 6) | (byte(k) & 0x3Fu);
    }
    // Overlong forms, surrogates and code points past U+10FFFF are not UTF-8.
    const uint32_t least = length == 3 ? 0x800 : 0x10000;
    if ((length > 2 && code < least) || (code >= 0xD800 && code <= 0xDFFF) || code > 0x10FFFF) {
        return 0;
    }
    return length;
}

std::string Escape(unsigned value) {
    char text[8];
    std::snprintf(text, sizeof text, "\\u%04x", value);
    return text;
}

std::string Number(double value) {
    return std::isfinite(value) ? DoubleText(value) : JsonString(DoubleText(value));
}

std::string Value(double value, bool isFloat) {
    return std::isfinite(value) ? ValueText(value, isFloat) : JsonString(ValueText(value, isFloat));
}

// Writes objects and lists with one member per line, two blanks per level.
class Writer {
public:
    void Open(char bracket) {
        text_ += bracket;
        ++depth_;
        first_ = true;
    }
    void Close(char bracket) {
        --depth_;
        if (!first_) NewLine();
        text_ += bracket;
        first_ = false;
    }
    // The next member's name (in an object) or the next element (in a list).
    Writer& Key(const std::string& name) {
        Next();
        text_ += JsonString(name) + ": ";
        return *this;
    }
    Writer& Item() {
        Next();
        return *this;
    }
    void Raw(const std::string& text) { text_ += text; }
    std::string Take() { return std::move(text_) + "\n"; }

private:
    void Next() {
        if (!first_) text_ += ',';
        NewLine();
        first_ = false;
    }
    void NewLine() { text_ += "\n" + std::string(2 * depth_, ' '); }

    std::string text_;
    int depth_ = 0;
    bool first_ = true;
};

void WriteKey(Writer& w, const ArrayKey& key) {
    w.Key("analysis").Raw(JsonString(key.analysis));
    w.Key("geometry").Raw(JsonString(key.geometry));
    w.Key("result").Raw(JsonString(key.result));
    w.Key("name").Raw(JsonString(key.name));
    w.Key("instance").Raw(JsonString(key.instance));
}

void WriteValue(Writer& w, const std::optional<ValueDiff>& value, double ValueDiff::*measure,
                bool isFloat) {
    if (!value) {
        w.Raw("null");
        return;
    }
    w.Open('{');
    w.Key("value").Raw(Number((*value).*measure));
    w.Key("index").Raw(std::to_string(value->index));
    w.Key("id").Raw(value->id ? std::to_string(*value->id) : "null");
    w.Key("component").Raw(std::to_string(value->component));
    w.Key("a").Raw(Value(value->a, isFloat));
    w.Key("b").Raw(Value(value->b, isFloat));
    w.Close('}');
}

void WriteArray(Writer& w, const ArrayDiff& diff) {
    w.Open('{');
    WriteKey(w, diff.key);
    w.Key("float").Raw(diff.isFloat ? "true" : "false");
    w.Key("types_differ").Raw(diff.typesDiffer ? "true" : "false");
    w.Key("size_a").Raw(std::to_string(diff.sizeA));
    w.Key("size_b").Raw(std::to_string(diff.sizeB));
    w.Key("components_a").Raw(std::to_string(diff.componentsA));
    w.Key("components_b").Raw(std::to_string(diff.componentsB));
    w.Key("id_kind").Raw(diff.idKind.empty() ? "null" : JsonString(diff.idKind));
    w.Key("compared").Raw(std::to_string(diff.compared));
    w.Key("differing").Raw(std::to_string(diff.differing));
    w.Key("unpaired").Raw(std::to_string(diff.unpaired));
    w.Key("max_abs");
    WriteValue(w, diff.maxAbs, &ValueDiff::abs, diff.isFloat);
    w.Key("max_rel");
    WriteValue(w, diff.maxRel, &ValueDiff::rel, diff.isFloat);
    w.Key("first").Open('[');
    for (const ValueDiff& value : diff.first) {
        w.Item();
        WriteValue(w, value, &ValueDiff::abs, diff.isFloat);
    }
    w.Close(']');
    w.Close('}');
}

void WriteIds(Writer& w, const IdDiff& ids) {
    auto list = [&](const std::vector<int64_t>& values) {
        w.Raw("[");
        for (size_t i = 0; i < values.size(); ++i) {
            w.Raw((i == 0 ? "" : ", ") + std::to_string(values[i]));
        }
        w.Raw("]");
    };
    w.Open('{');
    w.Key("analysis").Raw(JsonString(ids.analysis));
    w.Key("geometry").Raw(JsonString(ids.geometry));
    w.Key("kind").Raw(JsonString(ids.what));
    w.Key("only_in_a_count").Raw(std::to_string(ids.onlyInACount));
    w.Key("only_in_b_count").Raw(std::to_string(ids.onlyInBCount));
    w.Key("only_in_a");
    list(ids.onlyInA);
    w.Key("only_in_b");
    list(ids.onlyInB);
    w.Close('}');
}

std::string OptionalString(const std::optional<std::string>& text) {
    return text ? JsonString(*text) : "null";
}

}  // namespace

std::string JsonString(const std::string& text) {
    std::string json = "\"";
    for (size_t at = 0; at < text.size();) {
        const auto c = static_cast<unsigned char>(text[at]);
        if (c == '"' || c == '\\') {
            json += '\\';
            json += static_cast<char>(c);
        } else if (c == '\n') {
            json += "\\n";
        } else if (c == '\t') {
            json += "\\t";
        } else if (c < 0x20 || c == 0x7F) {
            json += Escape(c);
        } else if (c < 0x80) {
            json += static_cast<char>(c);
        } else if (const size_t length = Utf8Length(text, at); length != 0) {
            json.append(text, at, length);
            at += length;
            continue;
        } else {
            json += Escape(0xDC00u + c);
        }
        ++at;
    }
    return json + "\"";
}

std::string FormatJson(const DiffReport& report) {
    Writer w;
    w.Open('{');
    w.Key("equal").Raw(report.Equal() ? "true" : "false");
    w.Key("a").Raw(JsonString(report.pathA));
    w.Key("b").Raw(JsonString(report.pathB));
    w.Key("arrays_compared").Raw(std::to_string(report.arraysCompared));
    w.Key("values_compared").Raw(std::to_string(report.valuesCompared));
    w.Key("notes").Open('[');
    for (const std::string& note : report.notes) w.Item().Raw(JsonString(note));
    w.Close(']');
    w.Key("entries").Open('[');
    for (const EntryDiff& entry : report.entries) {
        w.Item().Open('{');
        w.Key("name").Raw(JsonString(entry.name));
        w.Key("a").Raw(OptionalString(entry.a));
        w.Key("b").Raw(OptionalString(entry.b));
        w.Close('}');
    }
    w.Close(']');
    for (const auto& [name, keys] :
         {std::pair{"only_in_a", &report.onlyInA}, std::pair{"only_in_b", &report.onlyInB}}) {
        w.Key(name).Open('[');
        for (const ArrayKey& key : *keys) {
            w.Item().Open('{');
            WriteKey(w, key);
            w.Close('}');
        }
        w.Close(']');
    }
    w.Key("ids").Open('[');
    for (const IdDiff& ids : report.ids) {
        w.Item();
        WriteIds(w, ids);
    }
    w.Close(']');
    w.Key("arrays").Open('[');
    for (const ArrayDiff& diff : report.arrays) {
        w.Item();
        WriteArray(w, diff);
    }
    w.Close(']');
    w.Close('}');
    return w.Take();
}

}  // namespace ZolDiff
