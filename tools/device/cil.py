"""Policy in CIL, as checkpolicy writes it: one statement a line. What types an attribute holds, and which
rules a neverallow check has to look at."""

import re

_ANONYMOUS = re.compile(r"base_typeattr_\d+")  # numbered anew in each policy


class Cil:
    """The statements of one policy."""

    def __init__(self, text):
        self.lines = text.splitlines()
        self._sets = {}  # attribute -> expression; then, when it was asked for, its types
        self.types = set()
        for line in self.lines:
            if line.startswith("(typeattributeset "):
                _, name, expression = _parse(line)
                self._sets[name] = expression
            elif line.startswith("(type "):
                self.types.add(_parse(line)[1])

    def members(self, name):
        """The types of an attribute; a type is its own."""
        if name in self.types:
            return {name}
        value = self._sets.get(name, set())
        if isinstance(value, list):
            value = self._sets[name] = self._evaluate(value)
        return value

    def _evaluate(self, expression):
        if isinstance(expression, str):
            return self.members(expression)
        if expression and expression[0] in ("and", "or", "not", "all"):
            operands = [self._evaluate(operand) for operand in expression[1:]]
            return {"and": lambda: operands[0] & operands[1], "or": lambda: operands[0] | operands[1],
                    "not": lambda: self.types - operands[0], "all": lambda: set(self.types)}[expression[0]]()
        return set().union(*(self._evaluate(operand) for operand in expression))

    def to_check(self, base, ours):
        """Two policies that violate a neverallow exactly when this one does, given that `base` violates
        none: the rules that touch what `base` has not, with the neverallows that can meet one of them; and
        all rules, with the neverallows that stand in a file below `ours`."""
        changed = self.types - base.types
        for name in self._sets.keys() | base._sets.keys():
            if not _ANONYMOUS.fullmatch(name):
                changed |= self.members(name) ^ base.members(name)
        known = {base._resolved(line) for line in base.lines if line.startswith("(allow")}
        new = {line for line in self.lines if line.startswith("(allow") and self._resolved(line) not in known}
        touched = new | {line for line in self.lines if line.startswith("(allow") and
                         any(changed & members for members in self._sides(line))}
        meets = self._meets(touched, new, changed)
        some, own, file = [], [], ""
        for line in self.lines:
            if line.startswith(";;* lmx"):
                file = line.split(" ", 3)[3]
            never = line.startswith("(neverallow")
            if (line in touched or not line.startswith("(allow")) and (not never or meets(line)):
                some.append(line)
            if not never or file.startswith(str(ours)):
                own.append(line)
        return "\n".join(some), "\n".join(own)

    def _sides(self, line):
        """The types at a rule's two sides; `self` stands for the same at both."""
        source, target = line.split(" ", 3)[1:3]
        return self.members(source), self.members(source if target == "self" else target)

    def _meets(self, rules, new, changed):
        """A function that tells whether a neverallow has sources, targets, a class and permissions in common
        with one of `rules`: any with one of those that are `new`, `changed` ones with the others."""
        by_class = {}
        for line in rules:
            everything = self.types if line in new else changed
            source, target = self._sides(line)
            sides = (source, target & everything), (source & everything, target)
            by_class.setdefault(_class_of(line), []).append((sides, _permissions_of(line)))

        def meets(line):
            source, target = self._sides(line)
            permissions = _permissions_of(line)
            return any(not permissions.isdisjoint(asked) and
                       any(not source.isdisjoint(one) and not target.isdisjoint(other) for one, other in sides)
                       for sides, asked in by_class.get(_class_of(line), ()))
        return meets

    def _resolved(self, line):
        return _ANONYMOUS.sub(lambda m: str(hash(frozenset(self.members(m.group())))), line)


def _class_of(line):
    """The class of a rule; of one about extended permissions it is the second word in the parentheses."""
    words = line.split(" ", 3)[3].lstrip("(").split(" ", 2)
    return words[1] if words[0] == "ioctl" else words[0]


def _permissions_of(line):
    """Those of a plain rule; a rule about extended permissions is about ioctl."""
    permissions = line.split(" ", 3)[3].lstrip("(").split("(", 1)[1].rstrip(")")
    return {"ioctl"} if "allowx " in line else set(permissions.split())


def _parse(text):
    stack = [[]]
    for token in re.findall(r"[()]|[^\s()]+", text):
        if token == "(":
            stack.append([])
        elif token == ")":
            done = stack.pop()
            stack[-1].append(done)
        else:
            stack[-1].append(token)
    return stack[0][0]
