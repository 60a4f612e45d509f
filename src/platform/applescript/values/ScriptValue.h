#pragma once

#include "platform/applescript/values/Terms.h"
#include "platform/foundation/values/Value.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace qv::applescript {

struct Specifier;

/// An object that several values may refer to. For one thread: the count is a plain number.
struct Shared {
    Shared() = default;
    Shared(const Shared& /*other*/) {}
    Shared(Shared&&) = delete;
    Shared& operator=(const Shared&) = delete;
    Shared& operator=(Shared&&) = delete;
    virtual ~Shared() = default;
    std::uint32_t count = 0;
};

/// A value of a script, two words wide. Numbers, booleans and constants are held in place; texts
/// never change; lists, records and dates are objects: all holders of the same one see it change
/// (`set` shares, `copy` does not).
///
/// Freeing takes no stack that grows with the depth of the value. The functions that make a shared
/// object throw a ScriptError (-108) beyond the thread's bound.
class ScriptValue {
public:
    enum class Kind : std::uint8_t {
        constant, ///< missing value and all other constants
        boolean,
        integer, ///< up to 2^29-1 either way where a script writes or computes it; else real
        real,
        type, ///< a class, such as `integer`
        text, // from here on: shared objects
        date,
        list,
        record,
        file,      ///< a file by its path: `alias`, `file` and `POSIX file`
        specifier, ///< an application, an object of one, or part of a value
        script,    ///< the script itself: `me`
    };

    ScriptValue() noexcept
        : ScriptValue(Kind::constant, static_cast<std::int64_t>(Term::missingValue)) {}
    ScriptValue(const ScriptValue& other) noexcept : kind_(other.kind_), bits_(other.bits_) {
        retain();
    }
    ScriptValue(ScriptValue&& other) noexcept : kind_(other.kind_), bits_(other.bits_) {
        other.kind_ = Kind::boolean;
    }
    ScriptValue& operator=(const ScriptValue& other) noexcept {
        ScriptValue copy(other);
        swap(copy);
        return *this;
    }
    ScriptValue& operator=(ScriptValue&& other) noexcept {
        swap(other);
        return *this;
    }
    ~ScriptValue() {
        if (isShared()) {
            release();
        }
    }

    static ScriptValue constant(Term term) noexcept {
        return {Kind::constant, static_cast<std::int64_t>(term)};
    }
    static ScriptValue type(Term term) noexcept {
        return {Kind::type, static_cast<std::int64_t>(term)};
    }
    static ScriptValue boolean(bool value) noexcept { return {Kind::boolean, value ? 1 : 0}; }
    static ScriptValue integer(std::int64_t value) noexcept { return {Kind::integer, value}; }
    static ScriptValue real(double value) noexcept { return ScriptValue(value); }
    /// The content of a variable that was never set. No script sees it.
    static ScriptValue undefined() noexcept { return constant(Term::none); }
    static ScriptValue text(std::string utf8); ///< valid UTF-8
    static ScriptValue date(double secondsSince1970Local);
    static ScriptValue list(std::vector<ScriptValue> items);
    using Fields = std::vector<std::pair<std::string, ScriptValue>>;
    /// The keys are words of properties (`button returned`) or names of the script in lower case.
    static ScriptValue record(Fields fields);
    /// `path`: absolute, POSIX. `form`: Term::alias, Term::file or Term::posixFile.
    static ScriptValue file(std::string path, Term form);
    static ScriptValue specifier(Specifier specifier);
    static ScriptValue script();

    [[nodiscard]] Kind kind() const noexcept { return kind_; }
    [[nodiscard]] bool is(Kind kind) const noexcept { return kind_ == kind; }
    [[nodiscard]] bool isConstant(Term term) const noexcept {
        return kind_ == Kind::constant && bits_.integer == static_cast<std::int64_t>(term);
    }
    [[nodiscard]] bool isMissing() const noexcept { return isConstant(Term::missingValue); }
    [[nodiscard]] bool isUndefined() const noexcept { return isConstant(Term::none); }
    [[nodiscard]] bool isNumber() const noexcept {
        return kind_ == Kind::integer || kind_ == Kind::real;
    }

    // Each needs the kind of its name.
    [[nodiscard]] Term asTerm() const noexcept {
        return static_cast<Term>(bits_.integer);
    } ///< constant or type
    [[nodiscard]] bool asBoolean() const noexcept { return bits_.integer != 0; }
    [[nodiscard]] std::int64_t asInteger() const noexcept { return bits_.integer; }
    [[nodiscard]] double asReal() const noexcept { return bits_.real; }
    [[nodiscard]] const std::string& asText() const noexcept;
    [[nodiscard]] double& asDate() const noexcept; ///< seconds since 1970 on the local clock
    [[nodiscard]] std::vector<ScriptValue>& asList() const noexcept;
    [[nodiscard]] Fields& asRecord() const noexcept;
    [[nodiscard]] const std::string& asFilePath() const noexcept;
    [[nodiscard]] Term fileForm() const noexcept;
    [[nodiscard]] const Specifier& asSpecifier() const noexcept;
    /// Whether both are the same object, or equal in place.
    [[nodiscard]] bool sameAs(const ScriptValue& other) const noexcept {
        return kind_ == other.kind_ && bits_.integer == other.bits_.integer;
    }
    [[nodiscard]] bool isShared() const noexcept { return kind_ >= Kind::text; }
    /// Whether no other value refers to the shared object.
    [[nodiscard]] bool isSoleOwner() const noexcept { return bits_.object->count == 1; }

    /// Whether all of a text is ASCII. Found out once.
    [[nodiscard]] bool isASCII() const noexcept;
    /// Appends to a text with a single owner.
    void append(std::string_view utf8) const;
    /// Throws if a list cannot grow by so many items.
    void expectItems(std::size_t more) const;
    /// Counts what a list or record that grew takes up now.
    void countAgain() const;

    // The bytes that the shared objects of this thread take up, and the most that they may.
    [[nodiscard]] static std::size_t bytesHeld() noexcept;
    static void limitBytes(std::size_t most) noexcept;
    /// Throws if this much more would be too much.
    static void expectBytes(std::size_t more);
    /// Frees lists and records that only refer to each other.
    static void freeCycles();

    void setInteger(std::int64_t value) noexcept { setInPlace(Kind::integer).integer = value; }
    void setReal(double value) noexcept { setInPlace(Kind::real).real = value; }
    void swap(ScriptValue& other) noexcept {
        std::swap(kind_, other.kind_);
        std::swap(bits_, other.bits_);
    }

private:
    union Bits {
        std::int64_t integer;
        double real;
        Shared* object;
    };
    ScriptValue(Kind kind, std::int64_t bits) noexcept : kind_(kind) { bits_.integer = bits; }
    explicit ScriptValue(double value) noexcept : kind_(Kind::real) { bits_.real = value; }
    ScriptValue(Kind kind, Shared* object) noexcept : kind_(kind) {
        bits_.object = object;
        ++object->count;
    }
    void retain() const noexcept {
        if (isShared()) {
            ++bits_.object->count;
        }
    }
    void release() noexcept;
    Bits& setInPlace(Kind kind) noexcept {
        if (isShared()) {
            release();
        }
        kind_ = kind;
        return bits_;
    }

    Kind kind_;
    Bits bits_{};
};

/// Counts bytes that no value holds yet, such as those of a list that is being made, for as long as
/// it lives. Throws a ScriptError (-108) beyond the thread's bound.
class HeldBytes {
public:
    HeldBytes() = default;
    explicit HeldBytes(std::size_t bytes) { grow(bytes); }
    HeldBytes(const HeldBytes&) = delete;
    HeldBytes(HeldBytes&&) = delete;
    HeldBytes& operator=(const HeldBytes&) = delete;
    HeldBytes& operator=(HeldBytes&&) = delete;
    ~HeldBytes() { release(); }
    void grow(std::size_t more);
    void release() noexcept;

private:
    std::size_t bytes_ = 0;
};

/// An object of an application (or an application itself) by the way that leads to it, innermost
/// container first: `name of every process` of System Events is that application, every process,
/// the property name.
struct Specifier {
    enum class Form : std::uint8_t {
        property, ///< `term`
        index,    ///< `key`: an integer, from 1 or, from the end, from -1
        name,     ///< `key`: a text
        id,       ///< `key`
        every,
        some,
        middle,
        range,  ///< `key` to `last`
        filter, ///< `filter`: those for which it holds
    };
    /// A condition of `whose`: on properties of the object that is looked at.
    struct Filter {
        enum class Operation : std::uint8_t {
            equal,
            notEqual,
            less,
            lessOrEqual,
            greater,
            greaterOrEqual,
            contains,
            startsWith,
            endsWith,
            isIn, ///< of a property and a value
            conjunction,
            disjunction,
            negation, ///< of `operands`
            holds,    ///< the property alone
        };
        Operation operation = Operation::holds;
        std::vector<Term> property = {}; ///< outermost first: `name of file` is name, file
        ScriptValue value = {};
        std::vector<Filter> operands = {};
    };
    struct Step {
        Form form = Form::property;
        /// A property or a class. None: a property that is not a term, its name in `key`. The first
        /// step of a specifier without an application is a property as well, with the value that
        /// it starts from in `key`, or it is a file's name, with the file in `key`.
        Term term = Term::none;
        /// The key; behind a filter, `item` and the form index, some or middle choose one of what
        /// it left.
        ScriptValue key = {};
        ScriptValue last = {};
        std::vector<Filter> filter = {}; ///< one element where there is one
    };
    std::string application; ///< as the script names it, by name or identifier; empty: none
    bool byIdentifier = false;
    std::vector<Step> steps;
};

/// The value under a key; null if there is none, and of a value that is not a record.
[[nodiscard]] ScriptValue* fieldOf(const ScriptValue& record, std::string_view key);

} // namespace qv::applescript
