#!/usr/bin/env python3
"""Generates the operation surface of libtavixopt from the registry in ops/.

Reads ops/rows.txt, ops/internal_rows.txt, ops/modes.toml, ops/frame.toml and every other
ops/*.toml (one family each) and writes into the output directory:

  include/tavix/tavix_ops.h   public prototypes of every implemented entry
  tavix_rows.h                TVX_ROW_* / TVX_IROW_* constants for every fixed row
  tavix_variants.h            declarations of the reference (C) and SIMD (V) variants
  entries.cc                  the public entry points
  tables.cc                   static dispatch tables, fill and index functions, mode row sets,
                              internal helper pointers and their two binders
  helpers.inc                 every helper pointer with its reference and SIMD kernel (tests)
  samples.inc                 one sample call per entry (generic tests and the tavix tool)
  fuzz_calls.inc              one differential fuzz call per entry (fuzz/entries.cc)
  exports.txt, exports.map    symbols the shared library exports, and its linker version script
  api.md                      the API reference page

Python standard library only.
"""
import argparse
import copy
import glob
import os
import re
import sys
import tomllib

import gen_remote

PARAM_RE = re.compile(
    r"^(?P<type>.+?[\s\*])(?P<name>\w+)(?:\s+(?P<dir>in|out|inout|ref)\[(?P<count>[^\]]+)\])?$")
REMOTE_TIERS = [2, 4, 5, 6]
WIDTH_NAMES = ("width", "srcWidth", "src1Width")
HEIGHT_NAMES = ("height", "srcHeight", "src1Height")


class Param:
    def __init__(self, text):
        m = PARAM_RE.match(text.strip())
        if not m:
            sys.exit(f"gen_ops: cannot parse parameter '{text}'")
        self.type = m["type"].strip()
        self.name = m["name"]
        self.dir = m["dir"]
        self.count = m["count"]
        self.is_ptr = self.type.endswith("*")
        if self.is_ptr and not self.dir:
            sys.exit(f"gen_ops: pointer parameter '{text}' needs a direction and count")

    def decl(self):
        return f"{self.type} {self.name}"


class Op:
    def __init__(self, d, defaults, family, rows, irows):
        merged = dict(defaults)
        merged.update(d)
        self.name = merged["name"]
        self.family = family
        self.internal = merged.get("internal", False)
        # Remote family: `dsp` (default true) gives the operation its remote forms; `dsp_stub =
        # "hand"` means the host stub writes its tavixdsp_ entry itself; `dsp_kernel` names what
        # the host DSP runs instead of the reference variant; `remote_only` entries have no row,
        # entry or local variant, only the remote family.
        self.remote_only = merged.get("remote_only", False)
        self.dsp = merged.get("dsp", True) or self.remote_only
        self.dsp_stub = merged.get("dsp_stub", "generated")
        self.dsp_kernel = merged.get("dsp_kernel", f"{self.name}C")
        self.dsp_fallback_log = merged.get("dsp_fallback_log", False)
        # `dsp_serve = false`: the host DSP declines the call, because its arguments hold
        # pointers into the caller's memory (level records) that another process cannot follow;
        # the remote form then ends on slot 1 like any failed remote run.
        self.dsp_serve = merged.get("dsp_serve", True)
        # `generic_sample = false`: no generic sample call, because the generic buffers cannot
        # stand for the entry's records; the family's own tests cover the entry.
        self.generic_sample = merged.get("generic_sample", True)
        table = irows if self.internal else rows
        # A _v2 form whose legacy entry owns the row name gives that name as `row`.
        self.row_name = merged.get("row", self.name)
        if self.remote_only:
            self.row = None
        elif self.row_name not in table:
            sys.exit(f"gen_ops: {self.name} has no fixed row")
        else:
            self.row = table.index(self.row_name)
        self.ret = merged["ret"]
        self.style = merged["style"]
        if self.style not in ("assert", "status", "value"):
            sys.exit(f"gen_ops: {self.name}: unknown style {self.style}")
        self.params = [Param(p) for p in merged["params"]]
        self.cond = merged["cond"]
        self.fail = merged.get("fail")
        self.stride0 = merged.get("stride0", {})
        # `normalize`: parameters replaced by an expression over the call's values before the
        # stride defaults and every check (a border below 4 raised to 3).
        self.normalize = merged.get("normalize", {})
        self.precheck = merged.get("precheck")
        self.downgrade = merged.get("downgrade", "none")
        self.remote = merged.get("remote")
        self.remote_tiers = merged.get("remote_tiers", REMOTE_TIERS)
        self.min_width = merged.get("min_width")
        self.gpu = merged.get("gpu")
        self.simd = merged.get("simd", False)
        self.doc = merged.get("doc", "")
        self.sample = merged.get("sample", {})
        self.legacy = merged.get("legacy", [])
        self.inplace_cond = merged.get("inplace_cond")
        self.safe_cond = merged.get("safe_cond")
        # `tolerance`: the relative difference allowed between the SIMD and the reference tier's
        # float outputs (the fuzz harness's default when absent).
        self.tolerance = merged.get("tolerance")
        self.call_args = None
        for p in self.stride0:
            if p not in self.names():
                sys.exit(f"gen_ops: {self.name}: stride0 names unknown parameter {p}")
        for p in self.normalize:
            if p not in self.names():
                sys.exit(f"gen_ops: {self.name}: normalize names unknown parameter {p}")
        if self.style == "status" and self.ret != "int32_t":
            sys.exit(f"gen_ops: {self.name}: status entries return int32_t")
        if self.ret != "void" and self.style != "status" and self.fail is None:
            sys.exit(f"gen_ops: {self.name}: a non-void entry needs a fail value")

    def names(self):
        return [p.name for p in self.params]

    def legacy_view(self, lg):
        """The entry shape of a legacy entry: its own parameters, name and (when given) its own
        condition and tier rules over those parameters; it calls the row with lg["args"]."""
        view = copy.copy(self)
        view.params = [Param(p) for p in lg["params"]]
        view.stride0 = {}
        view.normalize = {}
        view.safe_cond = None
        for key in ("cond", "precheck", "downgrade", "remote", "gpu", "inplace_cond", "safe_cond"):
            if key in lg:
                setattr(view, key, lg[key])
        view.call_args = ", ".join(lg["args"])
        return view

    def decl_params(self):
        return ", ".join(p.decl() for p in self.params) or "void"

    def args(self):
        return ", ".join(self.names())

    def row_const(self):
        return ("TVX_IROW_" if self.internal else "TVX_ROW_") + self.row_name

    def impl_table(self):
        return "tvxInternalImplTable" if self.internal else "tvxImplTable"

    def func_table(self):
        return "tvxInternalFuncTable" if self.internal else "tvxFuncTable"

    def fn_type(self):
        return f"tvx_fn_{self.name}"

    def remote_expr(self):
        if self.remote != "auto":
            return self.remote
        names = self.names()
        w = next((n for n in WIDTH_NAMES if n in names), None)
        h = next((n for n in HEIGHT_NAMES if n in names), None)
        strides = [n for n in names if n.endswith("Stride")]
        images = [p.name for p in self.params if p.is_ptr and "Stride" in (p.count or "")]
        parts = []
        if w and h:
            parts.append(f"uint64_t({w})*{h} >= TVX_MIN_REMOTE_WORK")
        if images or strides:
            parts.append("tvx_aligned8(" + ", ".join(images + strides) + ")")
        if self.min_width and w:
            parts.append(f"{w} >= {self.min_width}")
        return " && ".join(parts) or "1"


class Helper:
    """An internal helper pointer: a global that operations call inner kernels through.

    `kernel` names an operation whose reference and SIMD variants the pointer binds (it takes
    that operation's parameters); without it the helper has kernels of its own, named after
    the pointer without its trailing underscore plus C or V, with `params` and `ret`.
    `keep_reference` leaves the pointer on its reference kernel when the SIMD tier is bound."""

    def __init__(self, d, family, ops_by_name):
        self.name = d["name"]
        self.family = family
        if not self.name.endswith("_"):
            sys.exit(f"gen_ops: helper {self.name} must end with an underscore")
        self.doc = d.get("doc", "")
        self.keep_reference = d.get("keep_reference", False)
        self.kernel = d.get("kernel")
        if self.kernel:
            op = ops_by_name.get(self.kernel)
            if not op:
                sys.exit(f"gen_ops: helper {self.name} binds unknown operation {self.kernel}")
            self.ret, self.params, self.simd = op.ret, op.params, op.simd
            self.base = self.kernel
            self.own = False
            self.doc = self.doc or f"the variants of `{self.kernel}`, with its parameters and behaviour"
        else:
            self.ret = d.get("ret", "void")
            self.params = [Param(p) for p in d["params"]]
            self.simd = d.get("simd", True)
            self.base = self.name[:-1]
            self.own = True

    def decl_params(self):
        return ", ".join(p.decl() for p in self.params) or "void"

    def reference(self):
        return f"{self.base}C"

    def lanes(self):
        return f"{self.base}V" if self.simd and not self.keep_reference else self.reference()


def c_string(text):
    return '"' + text.replace("\\", "\\\\").replace('"', '\\"') + '"'


def load(ops_dir):
    def lines(path):
        with open(path) as f:
            return [l.strip() for l in f if l.strip() and not l.startswith("#")]
    rows = [None if l == "-" else l for l in lines(os.path.join(ops_dir, "rows.txt"))]
    irows = lines(os.path.join(ops_dir, "internal_rows.txt"))
    with open(os.path.join(ops_dir, "modes.toml"), "rb") as f:
        modes = tomllib.load(f)
    with open(os.path.join(ops_dir, "frame.toml"), "rb") as f:
        frame = tomllib.load(f)
    ops = []
    remote_only = []
    helper_docs = []
    for path in sorted(glob.glob(os.path.join(ops_dir, "*.toml"))):
        family = os.path.splitext(os.path.basename(path))[0]
        if family in ("modes", "frame"):
            continue
        with open(path, "rb") as f:
            doc = tomllib.load(f)
        defaults = doc.get("defaults", {})
        for d in doc.get("op", []):
            op = Op(d, defaults, family, rows, irows)
            (remote_only if op.remote_only else ops).append(op)
        helper_docs += [(d, family) for d in doc.get("helper", [])]
    ops_by_name = {op.name: op for op in ops}
    helpers = [Helper(d, family, ops_by_name) for d, family in helper_docs]
    if len({h.name for h in helpers}) != len(helpers):
        sys.exit("gen_ops: a helper pointer is declared twice")
    seen = {}
    for op in ops:
        key = (op.internal, op.row)
        if key in seen:
            sys.exit(f"gen_ops: {op.name} and {seen[key]} share a row")
        seen[key] = op.name
    return rows, irows, modes, frame, ops, helpers, remote_only


def gen_rows_h(rows, irows):
    out = ["// Generated by tools/gen_ops.py from ops/rows.txt. Do not edit.", "#pragma once", "",
           "#include <cstdint>", "",
           f"constexpr uint32_t TVX_NUM_ROWS = {len(rows)};",
           f"constexpr uint32_t TVX_NUM_INTERNAL_ROWS = {len(irows)};", "", "enum : uint32_t {"]
    out += [f"  TVX_ROW_{n} = {i}," for i, n in enumerate(rows) if n]
    out.append("};")
    reserved = [str(i) for i, n in enumerate(rows) if not n]
    out.append(f"// Reserved rows without an operation: {', '.join(reserved)}.")
    out.append("enum : uint32_t {")
    out += [f"  TVX_IROW_{n} = {i}," for i, n in enumerate(irows)]
    out.append("};")
    return "\n".join(out) + "\n"


def gen_public_h(ops):
    out = ["/* Generated by tools/gen_ops.py from the operation registry. Do not edit. */",
           "#ifndef TAVIX_TAVIX_OPS_H", "#define TAVIX_TAVIX_OPS_H", "",
           "#ifdef __cplusplus", 'extern "C" {', "#endif", ""]
    for op in sorted(ops, key=lambda o: o.name.lower()):
        if op.internal:
            continue
        out.append(f"/* {op.doc} */" if op.doc else "")
        out.append(f"TVX_API {op.ret} {op.name}({op.decl_params()});")
        for lg in op.legacy:
            out.append(f"TVX_API {op.ret} {lg['name']}({', '.join(Param(p).decl() for p in lg['params'])});")
    out += ["", "#ifdef __cplusplus", "}", "#endif", "", "#endif /* TAVIX_TAVIX_OPS_H */"]
    return "\n".join(out) + "\n"


def gen_variants_h(ops, helpers, family):
    out = ["// Generated by tools/gen_ops.py. Do not edit.",
           "// Every reference variant (C suffix) and SIMD variant (V suffix) with the row's",
           "// exact parameter list, and the slot type the entries cast the dispatch slot to.",
           "#pragma once", "", "#include <cstdint>", "", '#include "tavix/tavix.h"', "",
]
    out.append('extern "C" {')
    for op in ops:
        if op.internal:
            out.append(f"{op.ret} {op.name}({op.decl_params()});")
    for op in family:
        decl = op.decl_params()
        out.append(f"{op.ret} {op.name}Q_abstractionLayer(uint32_t handleLow, uint32_t handleHigh"
                   + "".join(f", {p.decl()}" for p in op.params) + ");")
        out += [f"{op.ret} {op.name}Q{x}({decl});" for x in ("", "a", "c", "m")]
        out.append(f"extern {op.ret} (*{op.name}R_)({decl});")
    out.append("}")
    for op in ops:
        out.append(f"typedef {op.ret} (*{op.fn_type()})({op.decl_params()});")
        out.append(f"{op.ret} {op.name}C({op.decl_params()});")
        if op.simd:
            out.append(f"{op.ret} {op.name}V({op.decl_params()});")
    out += ["", "// Internal helper pointers and the kernels of the helpers that have their own.",
            'extern "C" {']
    for h in helpers:
        out.append(f"extern {h.ret} (*{h.name})({h.decl_params()});")
    out.append("}")
    for h in helpers:
        if h.own:
            out.append(f"{h.ret} {h.reference()}({h.decl_params()});")
            if h.simd:
                out.append(f"{h.ret} {h.base}V({h.decl_params()});")
    return "\n".join(out) + "\n"


INTEGER_TYPES = {"uint8_t", "int8_t", "uint16_t", "int16_t", "uint32_t", "int32_t"}


def wide(op, expr):
    """An argument condition evaluated without wrap-around: the integer parameters it names
    become 64-bit values (as does every sizeof), so a width whose row size would wrap in 32 bits
    cannot pass. The logged text stays the condition as written."""
    names = set(re.findall(r"\b[A-Za-z_]\w*\b", expr))
    used = [p for p in op.params if p.name in names]
    if not any(p.type in INTEGER_TYPES for p in used):
        return expr
    body = re.sub(r"\bsizeof\s*\(([^()]*)\)", r"int64_t(sizeof(\1))", expr)
    params = ", ".join(f"int64_t {p.name}" if p.type in INTEGER_TYPES else p.decl() for p in used)
    return f"[]({params}) {{ return static_cast<bool>({body}); }}({', '.join(p.name for p in used)})"


def accepted_cond(op):
    """The condition an entry evaluates after its stride defaults: the written one, plus what it
    misses. Every stride with a packed form must hold a packed row, whether or not the written
    condition says so (a stride whose buffers are all null, such as an absent mask's, is not
    checked); `safe_cond` adds the rest (a row that would not fit its buffer)."""
    safe = []
    for k, v in op.stride0.items():
        users = [p.name for p in op.params if p.is_ptr and re.search(rf"\b{k}\b", p.count or "")]
        absent = " && ".join(f"!{u}" for u in users)
        safe.append(f"({absent}) || {k} >= ({v})" if users else f"{k} >= ({v})")
    # A byte stride of 16- or 32-bit elements must hold whole elements: rows would otherwise
    # start misaligned, which the element loads of both tiers do not allow.
    whole = {}
    for p in op.params:
        for k, n in re.findall(r"\b(\w*Stride)\s*/\s*([248])\b", p.count or "") if p.is_ptr else []:
            whole.setdefault((k, n), []).append(p.name)
    for (k, n), users in whole.items():
        if k in op.names():
            safe.append(f"{' || '.join('!' + u for u in users)} || {k} % {n} == 0")
    safe += [op.safe_cond] if op.safe_cond else []
    return " && ".join([f"({op.cond})"] + [f"({c})" for c in safe]) if safe else op.cond


def entry_body(op, public_name):
    """Body of an entry point, after its parameters are in the row's form."""
    b = []
    for p, expr in op.normalize.items():
        b.append(f"  {p} = {expr};")
    for p, expr in op.stride0.items():
        b.append(f"  if ({p} == 0) {p} = {expr};")
    if op.precheck:
        b.append(f"  if (!({wide(op, op.precheck)})) {{ tvx_size_error({c_string(public_name)}); return{'' if op.ret == 'void' else ' ' + (op.fail or '3')}; }}")
    b.append(f"  uint32_t t = {op.impl_table()}[{op.row_const()}];")
    if op.downgrade in ("gated", "ungated"):
        tiers = " || ".join(f"t == {t}" for t in op.remote_tiers)
        gate = "HW_constraint_checks_enable && " if op.downgrade == "gated" else ""
        b.append(f"  if (({tiers}) && {gate}!({op.remote_expr()})) t = 1;")
    elif op.downgrade != "none":
        sys.exit(f"gen_ops: {op.name}: unknown downgrade {op.downgrade}")
    if op.gpu:
        b.append(f"  if (t == 3 && !({op.gpu})) t = 1;")
    b.append(f"  if (libLogPrint) tvx_trace({c_string(public_name)}, t);")
    # A failure of what the written condition misses logs the written condition all the same.
    cond = accepted_cond(op)
    if op.style == "assert":
        ret = "" if op.ret == "void" else " " + op.fail
        b.append(f"  if (!({wide(op, cond)})) {{ tvx_assert_failed({c_string(public_name)}, {c_string(op.cond)}); return{ret}; }}")
    elif op.style == "status":
        b.append(f"  if (!({wide(op, cond)})) return 3;")
    else:
        b.append(f"  if (!({wide(op, cond)})) return {op.fail};")
    if op.inplace_cond:
        # A second condition that only binds when the first output aliases the first input.
        src = next(p.name for p in op.params if p.is_ptr and p.dir == "in")
        dst = next(p.name for p in op.params if p.is_ptr and p.dir != "in")
        fail = "" if op.ret == "void" else " " + (op.fail or "3")
        alias = f"static_cast<const void*>({src}) == static_cast<const void*>({dst})"
        if op.style == "assert":
            b.append(f"  if ({alias} && !({wide(op, op.inplace_cond)})) {{ tvx_assert_failed({c_string(public_name)}, {c_string(op.inplace_cond)}); return{fail}; }}")
        else:
            b.append(f"  if ({alias} && !({wide(op, op.inplace_cond)})) return{fail};")
    args = op.call_args or op.args()
    call = f"reinterpret_cast<{op.fn_type()}>({op.func_table()}[{op.row_const()}][t])({args})"
    if op.internal:
        # Internal rows stay empty until the first mode selection; before it the reference runs.
        call = (f"reinterpret_cast<{op.fn_type()}>({op.func_table()}[{op.row_const()}][t] ? "
                f"{op.func_table()}[{op.row_const()}][t] : (void*)&{op.name}C)({args})")
    # A kernel whose working storage cannot be had (a phone out of memory, or a size beyond a
    # 32-bit address space) throws from its containers; the call then fails like any allocation
    # failure instead of ending the app at the C boundary.
    b.append("  try {")
    if op.style == "status":
        b.append(f"    int32_t r = {call};")
        b.append(f"    if (r == 32768) r = reinterpret_cast<{op.fn_type()}>({op.func_table()}[{op.row_const()}][1])({args});")
        b.append("    return r;")
        fail = " 5"
    elif op.ret == "void":
        b.append(f"    {call};")
        fail = ""
    else:
        b.append(f"    return {call};")
        fail = " " + op.fail
    b.append(f"  }} catch (const std::exception&) {{ tvx_out_of_memory({c_string(public_name)}); return{fail}; }}")
    return b


def gen_entries_cc(ops):
    out = ["// Generated by tools/gen_ops.py from the operation registry. Do not edit.",
           "// Every entry: defaults for zero strides, tier read, downgrade, trace, argument",
           "// condition, call through the dispatch table (and the 32768 retry on slot 1).",
           "#include <exception>", '#include "frame/frame.h"', "", 'extern "C" {', ""]
    for op in ops:
        # Internal rows have entries too, for the library's own callers; they are not exported.
        api = "" if op.internal else "TVX_API "
        out.append(f"{api}{op.ret} {op.name}({op.decl_params()}) {{")
        out += entry_body(op, op.name)
        out.append("}")
        out.append("")
        for lg in op.legacy:
            view = op.legacy_view(lg)
            out.append(f"TVX_API {op.ret} {lg['name']}({view.decl_params()}) {{")
            out += entry_body(view, lg["name"])
            out.append("}")
            out.append("")
    out.append("}  // extern \"C\"")
    return "\n".join(out) + "\n"


def gen_tables_cc(rows, irows, modes, ops, helpers):
    by_row = {op.row: op for op in ops if not op.internal}
    by_irow = {op.row: op for op in ops if op.internal}
    out = ["// Generated by tools/gen_ops.py. Do not edit.",
           "// Static dispatch tables (constant initial data: reference variants in slots 0-3),",
           "// and the functions that fill slots and choose tiers by row.",
           '#include "frame/frame.h"', "", 'extern "C" {', "",
           "TVX_FUNC_TABLE tvxFuncTable = {"]
    for i, name in enumerate(rows):
        op = by_row.get(i)
        if op:
            c = f"(void*)&{op.name}C"
            out.append(f"  /* {i:3d} */ {{{c}, {c}, {c}, {c}, nullptr, nullptr, nullptr}},")
        else:
            out.append(f"  /* {i:3d} */ {{}},  // {name or 'reserved'}: not built")
    out.append("};")
    out.append("// Internal rows start empty; the first mode selection fills slots 0-3.")
    out.append("TVX_INTERNAL_FUNC_TABLE tvxInternalFuncTable = {};")
    out += ["", "}  // extern \"C\"", ""]

    out.append("void uCTable(uint32_t slot) {")
    out.append("  if (slot >= TVX_NUM_IMPL) return;")
    for op in ops:
        out.append(f"  {op.func_table()}[{op.row_const()}][slot] = (void*)&{op.name}C;")
    out.append("}")
    out.append("")
    out.append("void uVTable(uint32_t slot) {")
    out.append("  if (slot >= TVX_NUM_IMPL) return;")
    for op in ops:
        if op.simd:
            out.append(f"  {op.func_table()}[{op.row_const()}][slot] = (void*)&{op.name}V;")
    out.append("}")
    out.append("")
    simd_rows = [op for op in ops if op.simd]
    out.append("static const uint16_t kSimdRows[] = {" +
               ", ".join(op.row_const() for op in simd_rows if not op.internal) + "};")
    irows_simd = [op.row_const() for op in simd_rows if op.internal]
    out.append("static const uint16_t kSimdInternalRows[] = {" + ", ".join(irows_simd or ["0"]) + "};")
    out.append(f"static const uint32_t kSimdInternalCount = {len(irows_simd)};")
    out.append("")
    out.append("void uVIndex() {")
    out.append("  for (uint16_t r : kSimdRows) tvxImplTable[r] = TVX_IMPL_LANES;")
    out.append("  for (uint32_t i = 0; i < kSimdInternalCount; ++i) tvxInternalImplTable[kSimdInternalRows[i]] = TVX_IMPL_LANES;")
    out.append("}")
    out.append("")
    out.append("// Internal helper pointers start on their reference kernels, so a call before the first")
    out.append("// mode selection is still defined.")
    out.append('extern "C" {')
    for h in helpers:
        out.append(f"{h.ret} (*{h.name})({h.decl_params()}) = &{h.reference()};")
    out.append("}")
    out.append("")
    out.append("void uCHelper() {")
    out += [f"  {h.name} = &{h.reference()};" for h in helpers]
    out.append("}")
    out.append("")
    out.append("void uVHelper() {")
    out += [f"  {h.name} = &{h.lanes()};" for h in helpers if not h.keep_reference]
    out.append("}")
    out.append("")
    for key, var in (("low_power", "tvxLowPowerSet"), ("performance", "tvxPerformanceSet"),
                     ("performance_gpu", "tvxPerformanceGpuSet"), ("cpu_offload", "tvxCpuOffloadSet")):
        names = modes[key]
        out.append(f"static const uint16_t k_{key}[] = {{" + ", ".join(f"TVX_ROW_{n}" for n in names) + "};")
        out.append(f"const TvxRowSet {var} = {{k_{key}, {len(names)}}};")
    return "\n".join(out) + "\n"


SCALAR_SAMPLES = {
    "policy": "1", "dir": "3", "degree": "1", "scaleFactor": "1", "shift": "2",
    "alpha": "0.5f", "beta": "0.5f", "scalar": "3", "nMinLocSize": "16", "nMaxLocSize": "16",
}


def sample_value(op, p):
    if p.name in op.sample:
        return str(op.sample[p.name])
    if p.name in WIDTH_NAMES or p.name == "src2Width":
        return "s.width"
    if p.name in HEIGHT_NAMES:
        return "s.height"
    if p.name.endswith("Stride"):
        return "0"
    if p.name == "length":
        return "s.width * s.height"
    if p.name.startswith("value"):
        return "7"
    if p.name in SCALAR_SAMPLES:
        return SCALAR_SAMPLES[p.name]
    sys.exit(f"gen_ops: {op.name}: no sample value for {p.name}; add one with sample = {{...}}")


def gen_samples(ops):
    """One call per public entry over caller-provided buffers: used by the generic entry tests
    (with the first pointer null), the remote-tier tests and the tavix tool (tiers and timing).
    Scalars become locals in parameter order, so a padded stride (s.pad > 0) is written as the
    packed stride of the entry's zero-stride rule plus the padding."""
    out = ["// Generated by tools/gen_ops.py. Do not edit.",
           "// A sample call's buffers (as many as the entry has pointers), its image size, whether",
           "// the first pointer is passed as null, the padding added to every stride (0: packed), and a",
           "// value every stride takes instead when not 0.",
           f"constexpr int TVX_SAMPLE_BUFFERS = {max(sum(p.is_ptr for p in op.params) for op in ops)};",
           "struct TvxSample { void* buf[TVX_SAMPLE_BUFFERS]; uint32_t width, height; bool nullFirst; uint32_t pad; uint32_t stride; };", ""]
    entries = []
    for op in ops:
        if op.internal or not op.generic_sample:
            continue
        body = []
        strides = []  # declared after the other scalars, which their packed forms may name
        args = []
        k = 0
        first = True
        for p in op.params:
            if p.is_ptr:
                base = p.type.replace("const ", "").strip()
                expr = f"reinterpret_cast<{base}>(s.buf[{k}])"
                if first:
                    expr = f"s.nullFirst ? nullptr : {expr}"
                    first = False
                args.append(f"({expr})")
                k += 1
            else:
                value = sample_value(op, p)
                decl = body
                if p.name in op.stride0 and p.name not in op.sample:
                    value = f"s.pad ? ({op.stride0[p.name]}) + s.pad : 0"
                    decl = strides
                if p.name.endswith("Stride"):
                    value = f"s.stride ? s.stride : {value}"
                decl.append(f"const {p.type} {p.name} = static_cast<{p.type}>({value});")
                args.append(p.name)
        body += strides
        call = f"{op.name}({', '.join(args)})"
        if op.ret == "void":
            body.append(f"{call}; return 0;")
        else:
            body.append(f"return static_cast<int64_t>({call});")
        out.append(f"static int64_t tvx_sample_{op.name}(const TvxSample& s) {{ {' '.join(body)} }}")
        kind = {"assert": 0, "status": 1, "value": 2}[op.style]
        fail = op.fail if op.fail is not None else ("3" if op.style == "status" else "0")
        v = f"(void*)&{op.name}V" if op.simd else "nullptr"
        # The remote run the entry can reach: none when its tier rule never keeps a remote tier.
        never = op.downgrade == "ungated" and str(op.remote).strip() == "0"
        dsp = op.number if op.dsp and not never else -1
        # Strided entries whose width comes from the sample (the wrap-around test varies it).
        strided = "true" if any(p.name.endswith("Stride") for p in op.params) and not any(
            n in op.sample for n in WIDTH_NAMES) else "false"
        entries.append(f'  {{"{op.name}", {op.row}, {"true" if op.simd else "false"}, {kind}, '
                       f'{fail}, {c_string(op.cond)}, {k}, &tvx_sample_{op.name}, (void*)&{op.name}C, {v}, {dsp}, {strided}}},')
    out.append("")
    out.append("struct TvxSampleEntry { const char* name; uint32_t row; bool simd; int style; "
               "int64_t failValue; const char* cond; int pointers; int64_t (*call)(const TvxSample&); "
               "void* reference; void* simdVariant; int32_t dspOp; bool strided; };")
    out.append("static const TvxSampleEntry kTvxSamples[] = {")
    out += entries
    out.append("};")
    return "\n".join(out) + "\n"


def gen_fuzz(ops):
    """One differential fuzz call per public entry (fuzz/entries.cc): the fuzz input picks the
    image size, every scalar (the sample value, or one across or outside its range), every stride
    (packed, padded, zero or arbitrary) and the pixels; the buffers are sized from the registry's
    element counts over the values the entry will see after its defaults. The harness then runs
    the reference and the SIMD slot and checks the outcome against `ok`, the entry's own
    acceptance condition evaluated here over the same values."""
    out = ["// Generated by tools/gen_ops.py. Do not edit.",
           "// Element counts are evaluated in 128 bits: a wrapped count would hide an oversized call.",
           "using I = __int128;", ""]
    table = []
    for op in ops:
        if op.internal or not op.generic_sample or op.remote_only:
            continue
        ptrs = [p for p in op.params if p.is_ptr]
        if any(p.type.count("*") > 1 for p in ptrs):
            continue
        scalars = {p.name for p in op.params if not p.is_ptr}

        def eff(expr):  # the expression over the values after the entry's defaults
            return re.sub(r"\b(" + "|".join(sorted(scalars)) + r")\b", r"e_\1", expr) if scalars else expr

        def wide_count(expr):
            names = [n for n in re.findall(r"\b[A-Za-z_]\w*\b", expr) if n in scalars]
            names = list(dict.fromkeys(names))
            body = re.sub(r"\bsizeof\s*\(([^()]*)\)", r"I(sizeof(\1))", expr)
            decl = ", ".join(f"I {n}" for n in names)
            return (f"[]({decl}) {{ return tvxfuzz::Clamp({body}); }}"
                    f"({', '.join('e_' + n for n in names)})")

        b = ["  TvxSample s{}; s.width = fz.Width(); s.height = fz.Height(); s.pad = fz.Pad();"]
        strides = []
        for p in op.params:
            if p.is_ptr:
                continue
            value = sample_value(op, p)
            if p.name in op.stride0 and p.name not in op.sample:
                strides.append(f"  const {p.type} {p.name} = fz.Stride<{p.type}>(static_cast<{p.type}>({op.stride0[p.name]}), s.pad);")
            else:
                b.append(f"  const {p.type} {p.name} = fz.Scalar<{p.type}>(static_cast<{p.type}>({value}));")
        b += strides
        for p in op.params:
            if not p.is_ptr:
                b.append(f"  [[maybe_unused]] {p.type} e_{p.name} = {p.name};")
        for k, expr in op.normalize.items():
            b.append(f"  e_{k} = {eff(expr)};")
        for k, expr in op.stride0.items():
            b.append(f"  if (e_{k} == 0) e_{k} = {eff(expr)};")
        b.append("  (void)s;")
        for i, p in enumerate(ptrs):
            base = p.type.replace("const ", "").replace("*", "").strip()
            elem = "uint8_t" if base == "void" else base
            flt = "true" if "float" in elem or elem == "double" else "false"
            out_dir = "false" if p.dir == "in" else "true"
            b.append(f"  fz.Declare({i}, sizeof({elem}), {wide_count(p.count)}, {flt}, {out_dir});")
        b.append("  if (!fz.Place()) return;")
        for i, p in enumerate(ptrs):
            b.append(f"  [[maybe_unused]] {p.type} {p.name} = static_cast<{p.type}>(fz.Pointer({i}, 0));")
        checks = [f"({eff(wide(op, op.precheck))})"] if op.precheck else []
        checks.append(f"({eff(wide(op, accepted_cond(op)))})")
        b.append(f"  const bool fz_ok = {' && '.join(checks)};")
        args = []
        k = 0
        for p in op.params:
            if p.is_ptr:
                args.append(f"static_cast<{p.type}>(fz.Pointer({k}, fz_set))")
                k += 1
            else:
                args.append(p.name)
        call = f"{op.name}({', '.join(args)})"
        if op.ret == "void":
            ret = f"{call}; return tvxfuzz::Outcome{{}};"
        elif op.ret in ("float", "double", "float32_t"):
            ret = f"return tvxfuzz::Outcome::Real({call});"
        else:
            ret = f"return tvxfuzz::Outcome::Integer(static_cast<int64_t>({call}));"
        b.append(f"  fz.Run(fz_ok, [&](int fz_set) {{ {ret} }});")
        out.append(f"static void tvx_fuzz_{op.name}(tvxfuzz::Call& fz) {{")
        out += b
        out.append("}")
        fail = op.fail if op.fail is not None else ("3" if op.style == "status" else "0")
        v = f"(void*)&{op.name}V" if op.simd else "nullptr"
        real = "true" if op.ret in ("float", "double", "float32_t") else "false"
        tol = op.tolerance if op.tolerance is not None else "-1"
        table.append(f'  {{"{op.family}", "{op.name}", {op.row}, {"false" if op.ret == "void" else "true"}, {real}, '
                     f'{fail}, {tol}, (void*)&{op.name}C, {v}, &tvx_fuzz_{op.name}}},')
    out += ["", "static const tvxfuzz::Entry kTvxFuzzEntries[] = {"] + table + ["};"]
    return "\n".join(out) + "\n"


def gen_helpers_inc(helpers):
    out = ["// Generated by tools/gen_ops.py. Do not edit.",
           "// Every internal helper pointer with the kernels uCHelper and uVHelper bind it to.",
           "struct TvxHelperEntry { const char* name; void** pointer; void* reference; void* lanes; };",
           "static const TvxHelperEntry kTvxHelpers[] = {"]
    for h in helpers:
        out.append(f'  {{"{h.name}", reinterpret_cast<void**>(&{h.name}), (void*)&{h.reference()}, '
                   f"(void*)&{h.lanes()}}},")
    out.append("};")
    return "\n".join(out) + "\n"


def gen_exports(ops, frame):
    names = [op.name for op in ops if not op.internal]
    for op in ops:
        names += [lg["name"] for lg in op.legacy]
    names += frame["public"]["functions"] + frame["public"].get("data", [])
    return "\n".join(sorted(names)) + "\n"


def api_heading(title, doc, declaration):
    """An entry's heading, its doc line and its C declaration on the API page."""
    return [f"### {title}", ""] + ([doc, ""] if doc else []) + ["```c", declaration, "```", ""]


def gen_api_md(rows, ops, helpers, family):
    tier = lambda op: ("CPU, LANES" if op.simd else "CPU") + (", ADSP, CDSP, MDSP" if op.dsp else "")
    style = {"assert": "assertion: logs the condition and returns", "status": "status: 3 on a bad argument",
             "value": "value: returns the fail value"}
    out = ["# libtavixopt API reference", "",
           "Generated from the operation registry (`ops/`). Every entry below is implemented; rows",
           "without an entry are not built yet and their dispatch slots are empty.", "",
           f"Implemented operations: {sum(1 for o in ops if not o.internal)} of "
           f"{sum(1 for r in rows if r)} rows; with a SIMD variant: {sum(1 for o in ops if o.simd)}; "
           f"with a remote family (`Q`, `Qa`, `Qc`, `Qm`, `Q_abstractionLayer`): {len(family)}.", "",
           "Argument conditions are evaluated in 64-bit arithmetic: a width whose row size would wrap",
           "around 32 bits fails the condition (the log line shows the condition as written).", ""]
    for fam in sorted({op.family for op in ops}):
        out += [f"## {fam}", ""]
        for op in sorted((o for o in ops if o.family == fam), key=lambda o: o.name.lower()):
            out += api_heading(f"`{op.name}` (row {op.row})", op.doc, f"{op.ret} {op.name}({op.decl_params()});")
            out.append(f"- style: {style[op.style]}" + (f" {op.fail}" if op.fail and op.style != 'status' else ""))
            out.append(f"- condition: `{op.cond}`")
            if op.safe_cond:
                out.append(f"- also rejected, with the same log line: calls where `{op.safe_cond}` does not hold")
            for lg in op.legacy:
                if lg.get("safe_cond"):
                    out.append(f"- `{lg['name']}` also rejects, with its own condition's log line, calls where "
                               f"`{lg['safe_cond']}` does not hold")
            if op.normalize:
                out.append("- on entry: " + ", ".join(f"`{k}` = `{v}`" for k, v in op.normalize.items()))
            if op.stride0:
                out.append("- zero strides mean: " + ", ".join(f"`{k}` = `{v}`" for k, v in op.stride0.items()))
            if op.downgrade != "none":
                gate = "when constraint checks are on" if op.downgrade == "gated" else "always"
                out.append(f"- remote tiers {op.remote_tiers} drop to LANES {gate} unless `{op.remote_expr()}`")
            if op.gpu:
                out.append(f"- GPU tier drops to LANES unless `{op.gpu}`")
            out.append(f"- tiers: {tier(op)}")
            out.append("")
    out += ["## Remote family", "",
            "Every entry listed with the tiers ADSP, CDSP, MDSP has, not exported, `<name>Q_abstractionLayer`,",
            "`<name>Qa`, `<name>Qc`, `<name>Qm` (slots 4, 5, 6), the generic `<name>Q` (by `setDefaultDSPValue`)",
            "and the pointer `<name>R_` that the low-power, performance and CPU-offload modes bind to `<name>Q`.",
            "Behaviour chosen where it was ours to choose:", "",
            "- The stub entry `tavixdsp_<name>Q` takes the two handle halves, then the parameters in order, every",
            "  pointer followed by its element count as the entry's registry states it (an image: stride times",
            "  height, in elements of the pointer's type); a returned value comes back through a trailing pointer.",
            "- Output buffers travel to the DSP and back whole, so bytes of a strided image that the operation",
            "  does not write (the padding) come back unchanged. Buffers inside registered shared memory",
            "  (blocks from `tvxMemAlloc` while a DSP session is up) are not copied at all.",
            "- A count beyond 32 bits is not sent: the call runs on the SIMD tier.",
            "- After a DSP restart with successful recovery, a status entry returns the result of reapplying",
            "  the mode when that is not 0, else the operation's own status; other entries return their value.",
            "  Recoveries of several threads run one after the other.",
            "- `uQacmIndex` moves an internal row to a domain tier only where that slot holds a stub.",
            "- Remote-only: `tvx_cache_flush_invalidateQ` (and `Qa`, `Qc`, `Qm`) flushes and invalidates the",
            "  DSP's view of a buffer inside registered shared memory; for any other buffer it does nothing",
            "  and returns 0. It has no row and no CPU fallback: it returns the remote status.", ""]
    out += ["## Internal helper pointers", "",
            "Not exported. Each global starts on its reference kernel; every mode selection rebinds it",
            "to the reference kernel (`uCHelper`) and, where the SIMD tier is available, to the SIMD",
            "kernel (`uVHelper`). Helpers do not check their arguments: callers pass real strides.", ""]
    for h in sorted(helpers, key=lambda h: h.name.lower()):
        out += api_heading(f"`{h.name}`", h.doc, f"{h.ret} (*{h.name})({h.decl_params()});")
        out.append(f"- binds: `{h.reference()}`" + ("" if h.lanes() == h.reference() else f", `{h.lanes()}`"))
        out.append("")
    return "\n".join(out) + "\n"


def write(path, text):
    os.makedirs(os.path.dirname(path), exist_ok=True)
    old = None
    if os.path.exists(path):
        with open(path) as f:
            old = f.read()
    if old != text:  # keep timestamps when nothing changed, so rebuilds stay incremental
        with open(path, "w") as f:
            f.write(text)


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("--ops", required=True)
    ap.add_argument("--out", required=True)
    a = ap.parse_args()
    rows, irows, modes, frame, ops, helpers, remote_only = load(a.ops)
    family = gen_remote.number_family(ops, remote_only)
    for key in ("low_power", "performance", "performance_gpu", "cpu_offload"):
        for n in modes[key]:
            if n not in rows:
                sys.exit(f"gen_ops: mode set {key} names {n}, which has no row")
    write(os.path.join(a.out, "include/tavix/tavix_ops.h"), gen_public_h(ops))
    write(os.path.join(a.out, "tavix_rows.h"), gen_rows_h(rows, irows))
    write(os.path.join(a.out, "tavix_variants.h"), gen_variants_h(ops, helpers, family))
    write(os.path.join(a.out, "entries.cc"), gen_entries_cc(ops))
    write(os.path.join(a.out, "tables.cc"), gen_tables_cc(rows, irows, modes, ops, helpers))
    write(os.path.join(a.out, "samples.inc"), gen_samples(ops))
    write(os.path.join(a.out, "fuzz_calls.inc"), gen_fuzz(ops))
    write(os.path.join(a.out, "helpers.inc"), gen_helpers_inc(helpers))
    exports = gen_exports(ops, frame)
    write(os.path.join(a.out, "exports.txt"), exports)
    write(os.path.join(a.out, "exports.map"),
          "{\n  global:\n" + "".join(f"    {n};\n" for n in exports.split()) + "  local:\n    *;\n};\n")
    write(os.path.join(a.out, "api.md"), gen_api_md(rows, ops, helpers, family))
    write(os.path.join(a.out, "tavix_stubs.h"), gen_remote.gen_stubs_h(family))
    write(os.path.join(a.out, "remote.cc"), gen_remote.gen_remote_cc(family, modes, rows))
    write(os.path.join(a.out, "dsp_client.cc"), gen_remote.gen_dsp_client(family))
    write(os.path.join(a.out, "dsp_server.cc"), gen_remote.gen_dsp_server(family))


if __name__ == "__main__":
    main()
