#!/usr/bin/env python3
"""Checks that the shipped keep rules cover every Java name native code reaches.

The names are derived, not listed: the exported natives of libExtractorJni.so (their
JNI names decode to class and method), and the string literals of the native sources
that name Java classes ("com/...") and methods (a name next to a "(...)" signature,
and the swigDirectorDisconnect call). A class is covered by a -keep/-keepnames rule
whose class pattern matches it; a member by a rule matching its class (or, for an
instance callback, the class it is declared in) whose body keeps it: "*", "<methods>",
"native <methods>" for natives, or the member's own name.

usage: check_keep_rules.py RULES NM LIBRARY SOURCE...
"""
import re
import subprocess
import sys

PACKAGE = "com.quorvane.zul.mediaprocessors"


def jni_decode(mangled):
    """Java_<mangled> -> (class name, method name), per the JNI naming rule."""
    parts, current, i = [], "", 0
    while i < len(mangled):
        c = mangled[i]
        if c == "_" and i + 1 < len(mangled) and mangled[i + 1] in "0123":
            if mangled[i + 1] == "0":
                current += chr(int(mangled[i + 2:i + 6], 16))
                i += 6
                continue
            current += {"1": "_", "2": ";", "3": "["}[mangled[i + 1]]
            i += 2
            continue
        if c == "_":
            parts.append(current)
            current = ""
        else:
            current += c
        i += 1
    parts.append(current)
    return ".".join(parts[:-1]), parts[-1]


def pattern_regex(pattern):
    out = ""
    i = 0
    while i < len(pattern):
        if pattern.startswith("**", i):
            out += ".*"
            i += 2
        elif pattern[i] == "*":
            out += "[^.]*"
            i += 1
        else:
            out += re.escape(pattern[i])
            i += 1
    return re.compile(out + "$")


def parse_rules(text):
    text = re.sub(r"#.*", "", text)
    rules = []
    for m in re.finditer(r"(-keep\w*)(?:,[\w,]+)?\s+class\s+(?:\*\s+extends\s+)?(\S+)(?:\s*\{([^}]*)\})?", text):
        option, cls, body = m.group(1), m.group(2), m.group(3)
        extends = " extends " in m.group(0)
        members = [s.strip() for s in (body or "").split(";") if s.strip()]
        rules.append((option, pattern_regex(cls), extends, members))
    return rules


def member_kept(members, name, native):
    for spec in members:
        if spec in ("*", "<methods>") or (native and spec == "native <methods>"):
            return True
        if re.search(r"\b%s\s*\(" % re.escape(name), spec):
            return True
    return False


def main():
    rules_file, nm, library, sources = sys.argv[1], sys.argv[2], sys.argv[3], sys.argv[4:]
    rules = parse_rules(open(rules_file).read())
    symbols = subprocess.run([nm, "-D", "--defined-only", "--format=posix", library], check=True,
                             capture_output=True, text=True).stdout.split()
    natives = {jni_decode(s[len("Java_"):]) for s in symbols if s.startswith("Java_")}
    text = "".join(open(s, errors="replace").read() for s in sources)
    classes = {c.replace("/", ".") for c in re.findall(r'"(com/quorvane/[\w/$]+)"', text)}
    classes |= {c.replace("/", ".") for c in re.findall(r"L(com/quorvane/[\w/$]+);", text)}
    callbacks = set(re.findall(r'"(\w+)",\s*"\(', text)) | set(re.findall(r'"(swigDirectorDisconnect)"', text))
    bases = {c for c in classes if re.search(r'"%s"' % c.replace(".", "/"), text)}

    problems = []
    native_classes = {c for c, _ in natives}
    for cls in sorted(classes | native_classes):
        # -keepclasseswithmembernames keeps a class's name only when it has such members.
        if not any(not ext and p.match(cls) and (o in ("-keep", "-keepnames") or
                                                  (o == "-keepclasseswithmembernames" and cls in native_classes))
                   for o, p, ext, _ in rules):
            problems.append("class not kept by name: " + cls)
    for cls, method in sorted(natives):
        if not any(not ext and p.match(cls) and member_kept(m, method, True) for o, p, ext, m in rules):
            problems.append("native not kept: %s.%s" % (cls, method))
    module = PACKAGE + ".extractor_jni.MPFeatureExtractorJNI"
    for name in sorted(callbacks):
        owners = [module] if name.startswith("SwigDirector_") else sorted(bases)
        for cls in owners:
            if name.startswith("get") or name in ("toByteArray", "isInstance"):
                continue  # methods of java.lang / java.math classes
            if not any(not ext and p.match(cls) and member_kept(m, name, False) for o, p, ext, m in rules):
                problems.append("callback not kept: %s.%s" % (cls, name))
            if cls != module and not any(ext and p.match(cls) and member_kept(m, name, False)
                                         for o, p, ext, m in rules):
                problems.append("overrides of %s.%s in app classes not kept" % (cls, name))
    if problems:
        print("\n".join(problems))
        sys.exit(1)
    print("keep rules cover %d natives, %d callback names and %d classes" % (len(natives), len(callbacks), len(classes)))


main()
