"""Finds what can be changed in a source, and writes it with every change compiled in.

A change is a span of the source and what stands there instead. `a < b` becomes
`(perilink_mutant(17) ? ((a) <= (b)) : (a < b))`; only the unchanged branch has other changes in it,
so the text grows with their number and no faster. Lines stay where they are.
"""
import dataclasses
import pathlib
import re

import clang.cindex
from clang.cindex import CursorKind as Kind
from clang.cindex import TypeKind

BINARY = {
    '<': ('<=', '>='), '<=': ('<', '>'), '>': ('>=', '<='), '>=': ('>', '<'),
    '==': ('!=',), '!=': ('==',), '&&': ('left', 'right'), '||': ('left', 'right'),
    '+': ('-',), '-': ('+',), '*': ('+',), '/': ('*',), '%': ('/',),
    '&': ('|',), '|': ('&',), '^': ('|',), '<<': ('>>',), '>>': ('<<',),
    '+=': ('-=',), '-=': ('+=',), '|=': ('&=',), '&=': ('|=',), '^=': ('|=',), '*=': ('+=',),
    '/=': ('*=',), '<<=': ('>>=',), '>>=': ('<<=',),
}
FUNCTIONS = {Kind.FUNCTION_DECL, Kind.CXX_METHOD, Kind.CONSTRUCTOR, Kind.DESTRUCTOR,
             Kind.FUNCTION_TEMPLATE, Kind.CONVERSION_FUNCTION}
LITERALS = {Kind.INTEGER_LITERAL, Kind.FLOATING_LITERAL, Kind.CHARACTER_LITERAL}
CONDITIONED = {Kind.IF_STMT, Kind.WHILE_STMT, Kind.CONDITIONAL_OPERATOR}
# Where only constants may stand, or what has no value at run time.
SKIPPED = {Kind.CXX_UNARY_EXPR, Kind.STATIC_ASSERT, Kind.TYPE_ALIAS_DECL, Kind.STRUCT_DECL,
           Kind.PARM_DECL, Kind.ENUM_DECL}
NUMBER_OR_NAME = re.compile(r"[0-9.][0-9a-zA-Z.']*|[A-Za-z_]\w*|(u8|L)?'.*'")


@dataclasses.dataclass
class Change:
    file: str  # below src/
    line: int
    function: str
    begin: int
    end: int
    before: str
    after: str
    number: int = 0
    # How it is written: an expression in place of another, a statement that is left out, or one that
    # is left out where it stands and run after the next one, which begins at `moved_to`.
    kind: str = 'expression'
    moved_to: int = 0
    key: str = ''

    @property
    def room(self):
        return self.file.split('/')[0]


def flat(text):
    """The text on one line."""
    return re.sub(r'\s+', ' ', re.sub(r'//[^\n]*\n', ' ', text)).strip()


def bare(cursor):
    """The expression without conversions and parentheses around it."""
    while cursor.kind in (Kind.UNEXPOSED_EXPR, Kind.PAREN_EXPR):
        inside = list(cursor.get_children())
        if len(inside) != 1:
            break
        cursor = inside[0]
    return cursor


class Finder:
    """The changes of one translation unit, those of the headers of src/ included."""

    def __init__(self, src):
        self.src = src
        self.texts = {}
        self.changes = {}

    def find(self, unit):
        for cursor in unit.cursor.get_children():
            self._outside(cursor)
        return list(self.changes.values())

    def _text(self, file):
        # Offsets are bytes; latin-1 keeps each a character.
        if file not in self.texts:
            self.texts[file] = (self.src / file).read_bytes().decode('latin-1')
        return self.texts[file]

    def _file(self, cursor):
        name = cursor.location.file.name if cursor.location.file else ''
        path = pathlib.Path(name)
        return str(path.relative_to(self.src)) if path.is_relative_to(self.src) else None

    def _outside(self, cursor):
        """Looks for function bodies."""
        if (file := self._file(cursor)) is None:
            return
        if cursor.kind not in FUNCTIONS:
            for child in cursor.get_children():
                self._outside(child)
            return
        children = list(cursor.get_children())
        if not children or children[-1].kind != Kind.COMPOUND_STMT:
            return
        head = self._text(file)[cursor.extent.start.offset:children[-1].extent.start.offset]
        if re.search(r'\bconst(expr|eval)\b', head):
            return
        self.file = file
        parent = cursor.semantic_parent
        in_class = parent.kind in (Kind.CLASS_DECL, Kind.STRUCT_DECL, Kind.CLASS_TEMPLATE)
        self.function = f'{parent.spelling}::{cursor.spelling}' if in_class else cursor.spelling
        for child in children:
            if child.kind.is_expression() or child.kind == Kind.COMPOUND_STMT:
                self._inside(child, cursor)

    def _of(self, cursor):
        return self._text(self.file)[cursor.extent.start.offset:cursor.extent.end.offset]

    def _add(self, cursor, after, before=None, **more):
        begin, end = cursor.extent.start.offset, more.pop('end', cursor.extent.end.offset)
        before = flat(before or self._text(self.file)[begin:end])
        change = Change(self.file, cursor.extent.start.line, self.function, begin, end, before,
                        flat(after), **more)
        self.changes.setdefault((change.file, begin, end, change.kind, change.after), change)

    def _inside(self, cursor, parent):
        kind = cursor.kind
        children = list(cursor.get_children())
        if kind in SKIPPED or kind.is_attribute() or kind.is_reference():
            return
        if re.match(r'\s*>(?![>=])', self._text(self.file)[cursor.extent.end.offset:]) and \
                re.search(r'[\w:]<[^<;]*$', self._text(self.file)[:cursor.extent.start.offset]):
            return  # a template's last argument
        if kind == Kind.VAR_DECL:
            if 'constexpr' in self._of(cursor).split('=')[0]:
                return
            if cursor.type.kind == TypeKind.CONSTANTARRAY:  # not its size
                children = [child for child in children if child.kind == Kind.INIT_LIST_EXPR]
        elif kind == Kind.CASE_STMT:
            children = children[1:]
        elif kind == Kind.IF_STMT and self._of(cursor).startswith('if constexpr'):
            children = children[1:]
        self._statements(cursor, children)
        if kind in CONDITIONED and children and children[0].kind.is_expression():
            self._negate(children[0])
        elif kind == Kind.RETURN_STMT and children and children[0].type.kind == TypeKind.BOOL:
            self._negate(children[0])
        elif kind in (Kind.BINARY_OPERATOR, Kind.COMPOUND_ASSIGNMENT_OPERATOR):
            self._binary(cursor, *children)
        elif kind == Kind.UNARY_OPERATOR and parent.kind != Kind.FOR_STMT:
            self._unary(cursor, children[0])
        elif kind == Kind.CALL_EXPR and cursor.spelling in ('operator==', 'operator!='):
            self._add(cursor, f'!({self._of(cursor)})')
        elif kind in LITERALS and NUMBER_OR_NAME.fullmatch(self._of(cursor)):
            self._number(cursor, parent)
        elif kind == Kind.CXX_BOOL_LITERAL_EXPR:
            self._add(cursor, {'true': 'false', 'false': 'true'}.get(self._of(cursor), 'true'))
        elif kind == Kind.STRING_LITERAL and re.fullmatch(r'L?"[^"\n]+"', self._of(cursor)):
            self._add(cursor, 'L""' if self._of(cursor)[0] == 'L' else '""')
        elif kind in (Kind.DECL_REF_EXPR, Kind.MEMBER_REF_EXPR):
            self._name(cursor, parent)
        for child in children:
            self._inside(child, cursor)

    def _statements(self, cursor, children):
        """Leaves each simple statement out, and exchanges it with the next."""
        if cursor.kind == Kind.COMPOUND_STMT:
            inner = children
        elif cursor.kind in (Kind.IF_STMT, Kind.CASE_STMT):
            inner = children[1:] if cursor.kind == Kind.IF_STMT else children
        elif cursor.kind in (Kind.WHILE_STMT, Kind.FOR_STMT, Kind.CXX_FOR_RANGE_STMT,
                             Kind.DEFAULT_STMT):
            inner = children[-1:]
        else:
            return
        last = None
        for child in inner:
            begin, end = child.extent.start.offset, child.extent.end.offset
            tail = re.match(r'\s*;', self._text(self.file)[end:])
            simple = child.kind.is_expression() or child.kind in (Kind.BREAK_STMT,
                                                                  Kind.CONTINUE_STMT) or (
                child.kind == Kind.RETURN_STMT and self._of(child) == 'return')
            if not simple or not tail:
                last = None
                continue
            end += tail.end()
            self._add(child, '', kind='statement', end=end)
            if not self._calls(child):
                last = None
                continue
            if last and cursor.kind == Kind.COMPOUND_STMT:
                first, first_end = last
                self._add(first, 'after ' + self._text(self.file)[begin:end], kind='moved',
                          end=first_end, moved_to=begin)
            last = child, end

    def _calls(self, cursor):
        """Whether it calls something for its effect: two such calls have an order."""
        inner = bare(cursor)
        return inner.kind == Kind.CALL_EXPR and not inner.spelling.startswith('operator')

    def _negate(self, cursor):
        inner = bare(cursor)
        if inner.kind in (Kind.CALL_EXPR, Kind.DECL_REF_EXPR, Kind.MEMBER_REF_EXPR):
            if not inner.spelling.startswith('operator=='):
                self._add(cursor, f'!({self._of(cursor)})')

    def _binary(self, cursor, left, right):
        between = self._text(self.file)[left.extent.end.offset:right.extent.start.offset]
        operator = re.sub(r'//.*', '', between).strip()
        if left.extent.start.offset != cursor.extent.start.offset or operator not in BINARY:
            return
        if operator == '-' and right.type.get_canonical().kind == TypeKind.POINTER:
            return
        for other in BINARY[operator]:
            if other in ('left', 'right'):
                self._add(cursor, f'bool({self._of(left if other == "left" else right)})')
            else:
                self._add(cursor, f'({self._of(left)}) {other} ({self._of(right)})')

    def _unary(self, cursor, operand):
        text, inner = self._of(cursor), self._of(operand)
        operator = text.replace(inner, '', 1)
        if operator in ('++', '--'):
            self._add(cursor, text.replace(operator, '--' if operator == '++' else '++', 1))
        elif operator in ('!', '-', '~'):
            self._add(cursor, f'bool({inner})' if operator == '!' else f'({inner})')

    def _number(self, cursor, parent):
        text = self._of(cursor)
        if parent.type.get_canonical().kind == TypeKind.POINTER:
            return
        self._add(cursor, f'perilink_mutant_next({text})')
        if cursor.kind == Kind.INTEGER_LITERAL and not re.fullmatch('[01][uUlL]*', text):
            self._add(cursor, f'perilink_mutant_previous({text})')

    def _name(self, cursor, parent):
        """A constant, an enumerator, or a mutex."""
        named, text = cursor.referenced, self._of(cursor)
        spelling = cursor.type.get_canonical().spelling
        if re.fullmatch(r'std::(recursive_|shared_)?mutex', spelling):
            if parent.kind != Kind.MEMBER_REF_EXPR:
                self._add(cursor, f'perilink_mutant_unshared({text})')
        elif named is None or not text.endswith(cursor.spelling):
            return
        elif named.kind == Kind.ENUM_CONSTANT_DECL:
            names = [child.spelling for child in named.semantic_parent.get_children()]
            at = names.index(named.spelling)
            if len(names) > 1 and not named.semantic_parent.spelling.startswith('memory_order'):
                other = names[at + 1 if at + 1 < len(names) else at - 1]
                self._add(cursor, text[:len(text) - len(cursor.spelling)] + other)
        elif named.kind == Kind.VAR_DECL and named.type.is_const_qualified():
            at_runtime = named.semantic_parent.kind in FUNCTIONS
            if re.fullmatch(r'const (u?int|char|unsigned|signed|long|double|float|size_t|bool|DWORD)'
                            r'.*', named.type.spelling) and not at_runtime:
                self._add(cursor, f'perilink_mutant_next({text})')


def rewrite(text, changes):
    """The source with all the changes in it."""
    spans = {}
    for change in changes:
        spans.setdefault((change.begin, change.end), []).append(change)
        if change.kind == 'moved':  # runs after the statement that begins at moved_to
            end = next(other.end for other in changes
                       if other.begin == change.moved_to and other.kind == 'statement')
            spans.setdefault((change.moved_to, end), []).append(
                dataclasses.replace(change, kind='arrives'))
    ordered = sorted(spans, key=lambda span: (span[0], -span[1]))

    def emit(begin, end, at):
        out = []
        while at < len(ordered) and ordered[at][0] < end:
            span = ordered[at]
            inner, after = emit(*span, at + 1)
            if span[1] > end or span[0] < begin:  # a macro's parts overlap
                at += 1
                continue
            out += [text[begin:span[0]], wrap(inner, spans[span])]
            begin, at = span[1], after
        return ''.join(out) + text[begin:end], at

    return emit(0, len(text), 0)[0]


def wrap(inner, changes):
    if any(change.kind == 'expression' for change in changes):
        chosen = ''.join(f'perilink_mutant({change.number}) ? ({change.after}) : '
                         for change in changes)
        if chosen.find('? (!(') >= 0:  # in place of a condition of whatever type
            inner = f'bool({inner})'
        return f'({chosen}({inner}))'
    off = ' || '.join(f'perilink_mutant({change.number})' for change in changes
                      if change.kind != 'arrives')
    later = ''.join(f' if (perilink_mutant({change.number})) {{ {change.before} }}'
                    for change in changes if change.kind == 'arrives')
    return f'{{ if (!({off})) {{ {inner} }}{later} }}'


def find(source, root):
    """The changes of a source of root/src, and of the headers that it includes."""
    arguments = ['-std=c++20', *(f'-I{root / folder}'
                                 for folder in ('src', 'include', 'portable/include'))]
    unit = clang.cindex.Index.create().parse(str(source), args=arguments)
    errors = [str(note) for note in unit.diagnostics if note.severity >= note.Error]
    if errors:
        raise SystemExit(f'{source} does not parse: {errors[0]}')
    return Finder(root / 'src').find(unit)
