"""The form of requests and answers of the configuration API, as its page and its schemas define it.

What a schema cannot say is said here: the rules of JSON texts, and which part of a document answers
which request.
"""

import functools
import json
import math
import re
import sys
from decimal import Decimal
from pathlib import Path

import jsonschema

DOCS = Path(__file__).parents[2] / "docs"
PAGE = DOCS / "configuration-api.md"

MALFORMED_REQUEST = 1
REQUEST_TOO_LARGE = 10
LONGEST_REQUEST = 1_048_576
DEEPEST_NESTING = 2048
LONGEST_TEXT = 65_535
# The bus carries them to nobody.
NONCHARACTER = re.compile("[\ufdd0-\ufdef%s]" % "".join(
    chr(plane * 0x10000 + last) for plane in range(17) for last in (0xFFFE, 0xFFFF)))
# Python's reader takes a level of recursion for each level of a document.
sys.setrecursionlimit(DEEPEST_NESTING + 1000)


class WrongForm(Exception):
    """An answer that must not be, or one that its request must not have got."""


def require(kept, rule, request, answer):
    if not kept:
        raise WrongForm(f"{rule}\nrequest  {request[:2000]!r}\nanswered {answer[:2000]!r}")


# texts

def whole_number(text):
    number = int(text)
    if not -2**63 <= number < 2**63:
        raise ValueError("an integer has 64 bits")
    return number


def real_number(text):
    if math.isinf(float(text)):
        raise ValueError("no double can hold the number")
    return Decimal(text)  # which no schema takes for an integer, unlike a float


def no_number(text):
    raise ValueError(f"JSON knows no {text}")


def distinct_members(pairs):
    if len(dict(pairs)) < len(pairs):
        raise ValueError("a field stands twice")
    return dict(pairs)


def texts_in(document):
    """All texts and names in a document; raises ValueError for one that is nested too deeply."""
    rest = [(document, 1)]
    while rest:
        value, level = rest.pop()
        if isinstance(value, str):
            yield value
        elif isinstance(value, (dict, list)):
            if level > DEEPEST_NESTING:
                raise ValueError("nested too deeply")
            inner = list(value) + list(value.values()) if isinstance(value, dict) else value
            rest += [(each, level + 1) for each in inner]


def check_texts(document):
    """Raises ValueError for a text that cannot be in a request, and for one nested too deeply."""
    for text in texts_in(document):
        text.encode()
        if "\0" in text:
            raise ValueError("a NUL character")
        if NONCHARACTER.search(text):
            raise ValueError("a noncharacter")


def read_json(text):
    """The document that a text (bytes) is; raises ValueError or RecursionError for one that is none."""
    document = json.loads(text.decode(), object_pairs_hook=distinct_members, parse_int=whole_number,
                          parse_float=real_number, parse_constant=no_number)
    check_texts(document)
    return document


# documents of APIs

class Document:
    """What the schema of an API's document says about requests and answers."""

    def __init__(self, schema):
        jsonschema.Draft7Validator.check_schema(schema)
        self.parts = schema["definitions"]

    def place(self, path):
        """The name of the part that a path leads to, and whether it is a collection as a whole."""
        steps = iter(path)
        names = []
        whole = False
        for step in steps:
            part = self.parts["_".join(names) or "root"]
            names.append(step)
            whole = part["properties"][step].get("type") == "array" and next(steps, None) is None
        return "_".join(names) or "root", whole

    def fits(self, value, schema):
        return jsonschema.Draft7Validator({**schema, "definitions": self.parts}).is_valid(value)

    def node(self, name, property_name, omit_read_only):
        """The schema of a node as a get gives it. What can only be read is not required there."""
        part = self.parts[name]
        present = [each for each in part["properties"]
                   if (each in part["required"] or not omit_read_only)
                   and property_name in (None, each)]
        return {"type": "object", "required": present, "additionalProperties": False,
                "properties": {each: part["properties"][each] for each in present}}

    def answers(self, request, data):
        """Whether this is what the request asks for."""
        name, whole = self.place(request.get("path", []))
        omit_read_only = request.get("options", {}).get("omitReadOnly", False)
        operation = request["operation"]
        if operation in ("get", "add") and whole == (operation == "add"):
            return self.fits(data, self.node(name, request.get("property"), omit_read_only))
        if operation == "listKeys" and whole:
            return self.fits(data, {"type": "array",
                                    "items": self.node(name, None, omit_read_only)})
        return operation in ("set", "remove", "import") and not whole and data is None

    def takes(self, request):
        """Whether the data of a request is what its operation takes."""
        operation = request["operation"]
        return operation not in ("set", "add", "import") or (
            all(len(each.encode()) <= LONGEST_TEXT for each in texts_in(request["data"]))
            and self.fits(
                request["data"],
                {"$ref": f"#/definitions/{operation}_{self.place(request.get('path', []))[0]}"}))


# requests and answers

class Form:
    """Knows right from wrong requests and answers, of any API, and more closely of tovrel's."""

    def __init__(self, folder=DOCS):
        schema = json.loads((folder / "configuration-api.schema.json").read_text(encoding="utf-8"))
        jsonschema.Draft7Validator.check_schema(schema)
        self.request, self.answer = (
            jsonschema.Draft7Validator({"$ref": f"#/definitions/{name}",
                                        "definitions": schema["definitions"]})
            for name in ("request", "answer"))
        self.documents = {("tovrel", 2): Document(json.loads(
            (folder / "tovrel_v2.schema.json").read_text(encoding="utf-8")))}

    def check(self, request, answer):
        """
        Raises WrongForm unless this answer may be given to this request; both are texts or bytes.

        An answer is well-formed, whatever it answers. A request that is not well-formed has an
        error for an answer, and only such a one is called malformed. A request to a document that
        has a schema only succeeds with data as the schema describes it, in both directions.
        """
        request, answer = (text.encode() if isinstance(text, str) else text
                           for text in (request, answer))
        try:
            told = read_json(answer)
        except ValueError as error:
            raise WrongForm(f"an answer is JSON in UTF-8: {error}\nanswered {answer!r}") from error
        require(b"\n" not in answer, "an answer is one line", request, answer)
        require(self.answer.is_valid(told), "the schema refuses the answer", request, answer)
        code = told.get("error", {}).get("code")
        if len(request) > LONGEST_REQUEST:
            require(code == REQUEST_TOO_LARGE, "the request is too large", request, answer)
            return
        require(code != REQUEST_TOO_LARGE, "the request is not too large", request, answer)
        try:
            asked = read_json(request)
        except (ValueError, RecursionError):
            require(code == MALFORMED_REQUEST, "the request is no JSON", request, answer)
            return
        if not self.request.is_valid(asked):
            require(code is not None, "the schema refuses a request that succeeds", request, answer)
            return
        require(code != MALFORMED_REQUEST, "the schema accepts a malformed request", request, answer)
        document = self.documents.get((asked["api"], asked["version"]))
        if document is not None and code is None:
            require(document.takes(asked), "data succeeds that the schema refuses", request, answer)
            require(document.answers(asked, told["data"]),
                    "the data is not what was asked for", request, answer)


WRONG_ANSWERS = [
    "", "data", "[]", "null", "{}", '{"data":1,"data":1}', '{"data":1,"more":1}', '{"data":\n1}',
    '{"data":1,"error":{"code":1,"message":""}}', '{"error":null}', '{"error":{"code":1}}',
    '{"error":{"message":""}}', '{"error":{"code":"1","message":""}}',
    '{"error":{"code":1.0,"message":""}}', '{"error":{"code":1,"message":null}}',
    '{"error":{"code":1,"message":"","more":1}}', b'{"data":"\xff"}',
    '{"error":{"code":1,"message":""}}', '{"error":{"code":10,"message":""}}',
]
WRONG_DATA = [
    ('"operation":"get"', '{"subscription":[],"publication":{}}'),
    ('"operation":"get","path":["subscription","0"]', '{"id":0}'),
    ('"operation":"get","property":"deviceTopicPrefix"', "{}"),
    ('"operation":"get","property":"deviceTopicPrefix","options":{"omitReadOnly":true}',
     '{"deviceTopicPrefix":"x"}'),
    ('"operation":"get","path":["publication"],"property":"topicPrefix"', '{"topicPrefix":"x"}'),
    ('"operation":"get","path":["subscription"]', "[]"),
    ('"operation":"listKeys","path":["subscription"]', '["0"]'),
    ('"operation":"listKeys","path":["subscription"]', "null"),
    ('"operation":"remove","path":["subscription","0"]', "{}"),
    ('"operation":"set","path":["publication"],"data":{"topicPrefix":"x"}', "null"),
    ('"operation":"import","data":{"deviceTopicPrefix":""}', "null"),
    ('"operation":"set","path":["subscription","0"],"data":{"topicFilter":"%s"}'
     % ("a" * (LONGEST_TEXT + 1)), "null"),
]
WRONG_SUCCESSES = [
    "", "null", "{", '{"api":"x"}', b'{"api":"\xff","version":1,"operation":"get"}',
    '{"api":"x","version":1.0,"operation":"get"}', '{"api":"x","version":1,"operation":"set"}',
    '{"api":"x","version":1,"operation":"get","data":null}',
    '{"api":"x","version":1,"operation":"get","path":["\\u0000"]}',
    '{"api":"x","version":1,"operation":"set","data":"\\u0000"}',
    '{"api":"x","version":1,"operation":"set","data":["\\ufffe"]}',
    '{"api":"x","version":1,"operation":"set","data":{"a":1,"a":1}}',
    '{"api":"x","version":1,"operation":"set","data":9223372036854775808}',
    '{"api":"x","version":1,"operation":"set","data":1e999}',
    '{"api":"x","version":1,"operation":"set","data":NaN}',
    " " * (LONGEST_REQUEST + 1),
]


def wrong_exchanges():
    """Requests with answers that each break a rule."""
    for answer in WRONG_ANSWERS:
        yield '{"api":"x","version":1,"operation":"get"}', answer
    for rest, data in WRONG_DATA:
        yield '{"api":"tovrel","version":2,%s}' % rest, '{"data":%s}' % data
    for request in WRONG_SUCCESSES:
        yield request, '{"data":null}'


def check_that_wrong_ones_are_refused(form):
    """Raises WrongForm when the check accepts what it is there to find."""
    for request, answer in wrong_exchanges():
        try:
            form.check(request, answer)
        except WrongForm:
            continue
        raise WrongForm(f"a wrong answer is accepted\nrequest  {request}\nanswered {answer}")


# the page

def examples_in(page, api):
    """
    The examples of an API in their order. A block "json API" is a request and its answer; a block
    "console" is commands behind "$ " with what each prints. Each example is its kind, what is to be
    sent or run, and what comes back.
    """
    blocks = re.findall(rf"^```(json {re.escape(api)}|console)\n(.*?)^```$",
                        page.read_text(encoding="utf-8"), re.DOTALL | re.MULTILINE)
    for kind, block in blocks:
        if kind == "console":
            for command, output in re.findall(r"^\$ ((?:.*\\\n)*.*)\n((?:(?!\$ ).*\n)*)", block,
                                              re.MULTILINE):
                yield "console", command, output
            continue
        lines = block.splitlines()
        if len(lines) != 2:
            raise WrongForm(f"an example is a request and an answer:\n{block}")
        yield "json", *lines


class DocumentedError:
    """A line of one of the page's tables of errors; a name in angle brackets stands for any text."""

    ROW = re.compile(r"^\|(?: [^|]+ \|)? (\d+) \| `([^|]*)` \|(.*)\|$", re.MULTILINE)

    def __init__(self, code, message, explanation):
        self.code = int(code)
        self.message = message
        self.is_defect = "a defect of the service" in explanation
        self.pattern = re.compile(".*".join(re.escape(part)
                                            for part in re.split(r"<[a-z]+>", message)), re.DOTALL)

    def covers(self, error):
        return error["code"] == self.code and self.pattern.fullmatch(error["message"])


@functools.cache
def documented_errors():
    return [DocumentedError(*row)
            for row in DocumentedError.ROW.findall(PAGE.read_text(encoding="utf-8"))]


def check_documented(answer):
    """Raises WrongForm for an error that is in none of the page's tables."""
    error = json.loads(answer).get("error")
    if error is not None and not any(each.covers(error) for each in documented_errors()):
        raise WrongForm(f"the page does not have the error {error}")


@functools.cache
def form_of_all():
    return Form()


def checked_answer(request, answer):
    """
    The document that the service's answer to a request is; both are texts. Raises WrongForm unless
    the answer is one that the page and the schemas allow.
    """
    form_of_all().check(request, answer)
    check_documented(answer)
    return json.loads(answer)
