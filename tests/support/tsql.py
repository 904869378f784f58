"""The part of Transact-SQL that the test server understands, told to SQLite.

What is not known to be accepted by SQL Server is refused with the number that SQL Server gives: functions and clauses of
other databases, names of columns that only a later clause defines, columns that are neither grouped nor aggregated.
Columns check their values as their types do.
"""

import datetime
import re
from collections import namedtuple
from functools import lru_cache

Token = namedtuple("Token", "kind text")
TOKENS = re.compile(
    r"""\s+ | (?P<text>N?'(?:[^']|'')*') | (?P<name>\[[^\]]+\]|"[^"]+") | (?P<number>\d+(?:\.\d+)?)
    | (?P<variable>@@?\w+) | (?P<word>[A-Za-z_]\w*) | (?P<symbol><>|<=|>=|[-+*/=<>(),.;])""", re.X)

CLAUSES = ("SELECT", "FROM", "WHERE", "GROUP", "HAVING", "ORDER")
AGGREGATES = {"COUNT", "MAX", "MIN", "SUM"}
FUNCTIONS = {"SUBSTRING": "T_SUBSTRING", "CHARINDEX": "T_CHARINDEX", "GETDATE": "T_GETDATE",
             "COUNT": "COUNT", "MAX": "MAX", "MIN": "MIN", "SUM": "SUM"}
BEFORE_PARENTHESIS = {"IN", "AND", "OR", "NOT", "EXISTS", "VALUES", "WHERE", "HAVING", "ON", "BY", "FROM", "JOIN",
                      "SELECT", "DISTINCT", "SET", "AS"}
KEYWORDS = BEFORE_PARENTHESIS | {"IS", "NULL", "LIKE", "BETWEEN", "INNER", "LEFT", "OUTER", "ASC", "DESC", "GROUP",
                                 "ORDER", "INSERT", "INTO", "UPDATE", "DELETE", "DEFAULT", "TOP"}
FOREIGN = {"LIMIT", "RETURNING", "ILIKE", "GLOB", "REGEXP", "PRAGMA", "CONFLICT", "REPLACE", "TRUE", "FALSE", "ISNULL",
           "NOTNULL", "USING", "NATURAL", "CURRENT_DATE", "CURRENT_TIME", "ROWID"}
INTEGERS = {"smallint": 16, "int": 32, "bigint": 64}


class SqlError(Exception):
    """ends: what the failure takes with it: the statement, the batch, or the transaction too."""

    def __init__(self, number, message, severity=16, ends="statement"):
        super().__init__(message)
        self.number, self.message, self.severity, self.ends = number, message, severity, ends


def near(token):
    return SqlError(102, "Incorrect syntax near '%s'." % (token.text if token else "the end"), 15, "batch")


@lru_cache(maxsize=1000)
def tokens_of(text):
    tokens, at = [], 0
    while at < len(text):
        found = TOKENS.match(text, at)
        if not found:
            raise near(Token("symbol", text[at]))
        if found.lastgroup:
            tokens.append(Token(found.lastgroup, found.group()))
        at = found.end()
    return tokens


def is_word(tokens, at, *words):
    return 0 <= at < len(tokens) and tokens[at].kind == "word" and tokens[at].text.upper() in words


def is_symbol(tokens, at, symbol):
    return 0 <= at < len(tokens) and tokens[at].kind == "symbol" and tokens[at].text == symbol


def expect(tokens, at, *words):
    if not is_word(tokens, at, *words):
        raise near(tokens[at] if at < len(tokens) else None)
    return at + 1


def plain(token):
    """A name without what stands around it."""
    if token.kind not in ("name", "word"):
        raise near(token)
    return token.text[1:-1] if token.kind == "name" else token.text


def closing(tokens, at):
    """Position of the parenthesis that closes the one at this position."""
    depth = 0
    for i in range(at, len(tokens)):
        depth += is_symbol(tokens, i, "(") - is_symbol(tokens, i, ")")
        if depth == 0:
            return i
    raise near(None)


def split(tokens, symbol):
    """Parts between a symbol that stands outside parentheses."""
    parts, depth = [[]], 0
    for i, token in enumerate(tokens):
        depth += is_symbol(tokens, i, "(") - is_symbol(tokens, i, ")")
        if depth == 0 and is_symbol(tokens, i, symbol):
            parts.append([])
        else:
            parts[-1].append(token)
    return parts


def statements_of(text):
    tokens = tokens_of(text)
    if is_word(tokens, 0, "CREATE") and is_word(tokens, 1, "OR"):
        return [tokens]  # a trigger goes on to the end of the batch
    return [part for part in split(tokens, ";") if part]


class Translator:
    """One statement."""

    def __init__(self, columns, variables, constants):
        """columns: name -> type of every column there is, in lower case. constants: @@TRANCOUNT and the like."""
        self.columns, self.variables, self.constants = columns, variables, constants

    def statement(self, tokens):
        if is_word(tokens, 0, "SELECT"):
            return self.select(tokens)
        return self.expression(tokens, {0, 1, 2})

    def select(self, tokens, nested=False, named=False):
        clauses = self.clauses(tokens)
        items = clauses["SELECT"]
        distinct = is_word(items, 0, "DISTINCT")
        items = items[1:] if distinct else items
        limit, items = self.top(items)
        if limit is None and "ORDER" in clauses:
            limit, clauses["ORDER"] = self.fetch(clauses["ORDER"])
        parts = split(items, ",")
        if nested and "ORDER" in clauses and limit is None:
            raise SqlError(1033, "The ORDER BY clause is invalid in subqueries, unless TOP is also specified.", 15)
        self.check_grouping(parts, clauses)
        self.check_aliases(parts, clauses)
        if distinct and "ORDER" in clauses:
            self.check_sorted_by_selected(parts, clauses["ORDER"])
        if named and not all(self.alias(part) or len(part) in (1, 3) for part in parts):
            raise SqlError(8155, "No column name was specified for a column of a derived table.")
        text = "SELECT " + ("DISTINCT " if distinct else "") + self.expression(items)
        for clause in CLAUSES[1:]:
            if clause in clauses:
                text += " " + clause + " " + self.expression(clauses[clause], tables=clause == "FROM")
        return text + (" LIMIT " + limit if limit else "")

    def clauses(self, tokens):
        found, current, depth = {}, None, 0
        for i, token in enumerate(tokens):
            depth += is_symbol(tokens, i, "(") - is_symbol(tokens, i, ")")
            if depth == 0 and is_word(tokens, i, *CLAUSES):
                current = token.text.upper()
                if current in found or CLAUSES.index(current) < max([CLAUSES.index(each) for each in found], default=0):
                    raise near(token)
                found[current] = []
            else:
                found[current].append(token)
        return found

    def top(self, items):
        """TOP (5), TOP (@P1)."""
        if not is_word(items, 0, "TOP"):
            return None, items
        if not is_symbol(items, 1, "("):
            raise SqlError(50000, "The test server knows TOP with parentheses only.")
        end = closing(items, 1)
        return self.expression(items[2:end]), items[end + 1:]

    @staticmethod
    def fetch(order):
        """ORDER BY IDLog OFFSET 0 ROWS FETCH NEXT 5 ROWS ONLY."""
        at = next((i for i in range(len(order)) if is_word(order, i, "OFFSET")), len(order))
        words = [token.text.upper() for token in order[at:]]
        if not words:
            return None, order
        if len(words) != 8 or words[:5] + words[6:] != ["OFFSET", "0", "ROWS", "FETCH", "NEXT", "ROWS", "ONLY"] \
                or order[at + 5].kind != "number":
            raise near(order[at])
        return words[5], order[:at]

    @staticmethod
    def alias(part):
        return plain(part[-1]).lower() if len(part) > 2 and is_word(part, len(part) - 2, "AS") else None

    @staticmethod
    def has_aggregate(part):
        at = 0
        while at < len(part):
            if is_symbol(part, at, "(") and is_word(part, at + 1, "SELECT"):
                at = closing(part, at)
            elif is_word(part, at, *AGGREGATES) and is_symbol(part, at + 1, "("):
                return True
            at += 1
        return False

    @staticmethod
    def normal(part):
        """A column by its own name, any other expression by its text."""
        part = part[:-1] if is_word(part, len(part) - 1, "ASC", "DESC") else part
        if len(part) in (1, 3) and part[-1].kind in ("word", "name"):
            return plain(part[-1]).lower()
        return " ".join(token.text for token in part).lower()

    def check_grouping(self, parts, clauses):
        grouped = {self.normal(part) for part in split(clauses["GROUP"][1:], ",")} if "GROUP" in clauses else set()
        if "GROUP" not in clauses and not any(self.has_aggregate(part) for part in parts):
            return
        for part in parts:
            bare = part[:-2] if self.alias(part) else part
            if bare[0].kind not in ("number", "text") and not self.has_aggregate(bare) and self.normal(bare) not in grouped:
                raise SqlError(8120, "Column '%s' is invalid in the select list because it is not contained in either an "
                                     "aggregate function or the GROUP BY clause." % self.normal(bare))

    def check_aliases(self, parts, clauses):
        """What a column is called counts for ORDER BY only."""
        aliases = {self.alias(part) for part in parts} - {None} - set(self.columns)
        for clause in ("WHERE", "GROUP", "HAVING"):
            for token in clauses.get(clause, []):
                if token.kind in ("word", "name") and plain(token).lower() in aliases:
                    raise SqlError(207, "Invalid column name '%s'." % plain(token))

    def check_sorted_by_selected(self, parts, order):
        selected = {self.alias(part) for part in parts} | {self.normal(part) for part in parts}
        for part in split(order[1:], ","):
            if self.normal(part) not in selected:
                raise SqlError(145, "ORDER BY items must appear in the select list if SELECT DISTINCT is specified.", 15)

    def expression(self, tokens, tables_at=frozenset(), tables=False):
        """tables_at: positions at which a name may be a table with a list of columns behind it."""
        out, at = [], 0
        while at < len(tokens):
            token = tokens[at]
            if is_symbol(tokens, at, "(") and is_word(tokens, at + 1, "SELECT"):
                end = closing(tokens, at)
                out.append("(" + self.select(tokens[at + 1:end], nested=True, named=tables) + ")")
                if tables:
                    self.require_table_name(tokens, end + 1)
                at = end + 1
                continue
            if is_word(tokens, at, "INFORMATION_SCHEMA", "SYS") and is_symbol(tokens, at + 1, "."):
                out.append(token.text + "_" + plain(tokens[at + 2]))
                at += 3
                continue
            if token.kind == "word" and is_symbol(tokens, at + 1, "(") and at not in tables_at:
                text, at = self.call(tokens, at)
                out.append(text)
                continue
            out.append(self.joined(tokens, at) if is_symbol(tokens, at, "+") else self.single(tokens, at))
            at += 1
        return " ".join(out)

    @staticmethod
    def require_table_name(tokens, at):
        at += is_word(tokens, at, "AS")
        if at >= len(tokens) or tokens[at].kind not in ("word", "name") or is_word(tokens, at, *KEYWORDS):
            raise near(Token("symbol", ")"))

    def joined(self, tokens, at):
        """A plus joins texts or adds numbers: what stands beside it tells."""
        beside = [tokens[i] for i in (at - 1, at + 1) if 0 <= i < len(tokens)]
        if any(token.kind == "text" for token in beside):
            return "||"
        if any(token.kind == "number" for token in beside):
            return "+"
        raise SqlError(50000, "The test server cannot tell what this + adds.")

    def single(self, tokens, at):
        token = tokens[at]
        if token.kind == "text":
            return token.text[1:] if token.text[0] == "N" else token.text
        if token.kind == "name":
            return "[" + plain(token) + "]"
        if token.kind == "variable":
            return self.variable(token.text)
        if token.kind == "word" and token.text.upper() in FOREIGN:
            raise near(token)
        return token.text

    def variable(self, name):
        if name.upper() in self.constants:
            return str(self.constants[name.upper()])
        if name.lower() not in self.variables:
            raise SqlError(137, 'Must declare the scalar variable "%s".' % name, 15, "batch")
        return ":" + name[1:].lower()

    def call(self, tokens, at):
        name, end = tokens[at].text.upper(), closing(tokens, at + 1)
        inner = tokens[at + 2:end]
        if name == "CAST":
            return self.cast(inner), end + 1
        if name == "DATEDIFF":
            if not is_word(inner, 0, "DAY"):
                raise SqlError(1023, "Invalid parameter 1 specified for datediff.", 15, "batch")
            return "T_DAYS(" + self.expression(inner[2:]) + ")", end + 1
        if name == "SCOPE_IDENTITY":
            return str(self.constants["SCOPE_IDENTITY"]), end + 1
        if name in FUNCTIONS:
            text = FUNCTIONS[name] + "(" + self.expression(inner) + ")"
            return text + (" COLLATE Latin1_General_100_CI_AS" if name == "SUBSTRING" else ""), end + 1
        if name in BEFORE_PARENTHESIS:
            return self.single(tokens, at), at + 1
        raise SqlError(195, "'%s' is not a recognized built-in function name." % tokens[at].text, 15, "batch")

    def cast(self, inner):
        kinds = [i for i in range(len(inner)) if is_word(inner, i, "AS")]
        if not kinds:
            raise near(Token("symbol", ")"))
        kind = "".join(token.text for token in inner[kinds[-1] + 1:]).lower()
        if not re.fullmatch(r"bigint|int|float|date|n?(var)?char\(\d+\)", kind):
            raise SqlError(243, "Type %s is not a defined system type." % kind, 16, "batch")
        return "T_CAST(" + self.expression(inner[:kinds[-1]]) + ", '" + kind + "')"


def dates_selected(tokens, columns):
    """Positions of the columns of a query that are the greatest or least date."""
    places = []
    parts = split(Translator(columns, {}, {}).clauses(tokens)["SELECT"], ",")
    for i, part in enumerate(parts):
        bare = part[:-2] if Translator.alias(part) else part
        if is_word(bare, 0, "MAX", "MIN") and is_symbol(bare, len(bare) - 1, ")"):
            if columns.get(plain(bare[-2]).lower()) == "datetime2" and not any(is_symbol(part, 0, "*") for part in parts):
                places.append(i)
    return places


def column_definition(tokens):
    """One column of CREATE TABLE. Its checks bear the numbers of the errors that they stand for."""
    name, at = plain(tokens[0]), 1
    kind = tokens[at].text.lower() if at < len(tokens) else ""
    at += 1
    size = None
    if is_symbol(tokens, at, "("):
        size, at = tokens[at + 1].text.lower(), closing(tokens, at) + 1
    column = "[" + name + "]"
    if is_word(tokens, at, "IDENTITY"):
        expect(tokens, expect(tokens, at + 1, "PRIMARY"), "KEY")
        return column + " INTEGER PRIMARY KEY AUTOINCREMENT"
    if kind in INTEGERS:
        most = 1 << (INTEGERS[kind] - 1)
        check = "[245] CHECK (typeof(%s) IN ('integer', 'null') AND %s BETWEEN %d AND %d)" % (column, column, -most, most - 1)
    elif kind == "float":
        check = "[8114] CHECK (typeof(%s) IN ('real', 'null'))" % column
    elif kind == "nvarchar" and size == "max":
        kind, check = "nvarcharmax", "[8152] CHECK (1)"
    elif kind == "nvarchar" and size and size.isdigit() and int(size) <= 4000:
        check = "[2628] CHECK (T_UNITS(%s) <= %s)" % (column, size)
    elif kind == "datetime2" and size == "0":
        check = "[241] CHECK (T_IS_DATE(%s))" % column
    else:
        raise SqlError(2715, "Column, parameter, or variable: Cannot find data type %s." % kind)
    rest = []
    while at < len(tokens):
        if is_word(tokens, at, "COLLATE"):
            rest.append("COLLATE " + plain(tokens[at + 1]))
            at += 2
        elif is_word(tokens, at, "DEFAULT"):
            end = closing(tokens, at + 2) + 1 if is_symbol(tokens, at + 2, "(") else at + 2
            rest.append("DEFAULT (" + Translator({}, {}, {}).expression(tokens[at + 1:end]) + ")")
            at = end
        elif is_word(tokens, at, "NOT", "PRIMARY") and is_word(tokens, at + 1, "NULL", "KEY"):
            rest.append(tokens[at].text + " " + tokens[at + 1].text)
            at += 2
        else:
            raise near(tokens[at])
    return " ".join([column, kind] + rest + ["CONSTRAINT", check])


def moment(text):
    return datetime.datetime.strptime(text, "%Y-%m-%d %H:%M:%S")


def units(text):
    """Length as SQL Server counts it."""
    return len(str(text).encode("utf-16-le")) // 2


def is_date(value):
    try:
        return value is None or bool(moment(value))
    except (TypeError, ValueError):
        return False


def days_between(first, second):
    if first is None or second is None:
        return None
    day = lambda text: datetime.date.fromisoformat(text[:10])
    return (day(second) - day(first)).days


def cast(value, kind):
    if value is None:
        return None
    if kind == "date":
        return str(value)[:10]
    size = re.search(r"(var)?char\((\d+)\)", kind)
    if size:
        text = str(value)[:int(size.group(2))]
        return text if size.group(1) else text.ljust(int(size.group(2)))
    return float(value) if kind == "float" else int(value)


def compare(fold):
    """Blanks at the end do not count."""
    def order(left, right):
        left, right = fold(left.rstrip(" ")), fold(right.rstrip(" "))
        return (left > right) - (left < right)
    return order


def prepare(database):
    """Gives an open SQLite database the functions and views that translated texts use."""
    same = {"deterministic": True}
    database.create_function("T_SUBSTRING", 3, lambda text, start, count: None if text is None else
                             text[start - 1:start - 1 + count], **same)
    database.create_function("T_UNITS", 1, lambda text: 0 if text is None else units(text), **same)
    database.create_function("T_CHARINDEX", 2, lambda part, text: None if text is None else
                             text.casefold().find(part.casefold()) + 1, **same)
    database.create_function("T_DAYS", 2, days_between, **same)
    database.create_function("T_CAST", 2, cast, **same)
    database.create_function("T_IS_DATE", 1, is_date, **same)
    database.create_function("T_GETDATE", 0, lambda: datetime.datetime.now().strftime("%Y-%m-%d %H:%M:%S"))
    database.create_collation("Latin1_General_100_CI_AS", compare(str.casefold))
    database.create_collation("Latin1_General_100_BIN2", compare(str))
    database.execute("""CREATE TEMP VIEW INFORMATION_SCHEMA_COLUMNS AS SELECT t.name AS TABLE_NAME, c.name AS COLUMN_NAME,
        CASE WHEN c.type = 'INTEGER' THEN 'bigint' WHEN c.type LIKE 'nvarchar%' THEN 'nvarchar' ELSE c.type END AS DATA_TYPE,
        c.cid + 1 AS ORDINAL_POSITION FROM main.sqlite_master t JOIN pragma_table_info(t.name) c
        WHERE t.type = 'table' AND t.name NOT LIKE 'sqlite%'""")
    database.execute("CREATE TEMP VIEW SYS_INDEXES AS SELECT name FROM main.sqlite_master WHERE type = 'index'")


def error_of(failure):
    """What SQL Server would say."""
    text = str(failure)
    word = (re.findall(r"[:\"] ?([\w.]+)", text) + ["?"])[0]
    if "no such table" in text:
        return SqlError(208, "Invalid object name '%s'." % word, ends="batch")
    if "no such column" in text or "has no column" in text:
        return SqlError(207, "Invalid column name '%s'." % word, ends="batch")
    if "UNIQUE" in text:
        return SqlError(2601, "Cannot insert duplicate key row in object '%s' with unique index." % word, 14)
    if "NOT NULL" in text:
        return SqlError(515, "Cannot insert the value NULL into column '%s'." % word)
    if "CHECK" in text:
        number = int(word)
        message = {2628: "String or binary data would be truncated.", 241: "Conversion failed when converting date and/or "
                   "time from character string."}.get(number, "Conversion failed when converting a value.")
        return SqlError(number, message, ends="statement" if number == 2628 else "transaction")
    if "locked" in text:
        return SqlError(1222, "Lock request time out period exceeded.")
    if "syntax error" in text or "incomplete input" in text:
        return SqlError(102, "Incorrect syntax near '%s'." % word, 15, "batch")
    return SqlError(50000, text)
