#!/usr/bin/env python3
"""What mistakes.py finds to get wrong, and what it leaves alone."""

import itertools
import unittest

import mistakes
import mutate


def of(kind, text):
    """The text with each of its mistakes of this kind, sorted."""
    return sorted(found.made_in(text) for found in mistakes.mistakes_in("a.cpp", text) if found.kind == kind)


class Operators(unittest.TestCase):
    def test_comparisons_move_their_bound_or_turn_round(self):
        for before, after in (("<", "<="), ("<=", "<"), (">", ">="), (">=", ">"), ("==", "!="), ("!=", "==")):
            self.assertEqual(of("comparison", f"x = a {before} b;"), [f"x = a {after} b;"])

    def test_a_template_compares_nothing(self):
        self.assertEqual(of("comparison", "std::array<char, kSize> a{};  template <typename T>"), [])

    def test_conditions(self):
        self.assertEqual(of("logic", "if (!a && b)"), ["if (!a || b)", "if (a && b)"])

    def test_a_reference_is_no_condition(self):
        self.assertEqual(of("logic", "void f(T&& t);"), [])

    def test_sums_products_and_steps(self):
        self.assertEqual(of("arithmetic", "y = a + b * c; x += 1; ++i; p->f();"),
                         sorted(["y = a - b * c; x += 1; ++i; p->f();", "y = a + b / c; x += 1; ++i; p->f();",
                                 "y = a + b * c; x -= 1; ++i; p->f();", "y = a + b * c; x += 1; --i; p->f();"]))


class Constants(unittest.TestCase):
    def test_small_numbers_grow_by_one_and_large_ones_double(self):
        for before, after in (("0", "1"), ("100", "101"), ("3'600", "7200"), ("1.5", "1.7999999999999998"),
                              ("0.0", "1.0"), ("30s", "31s"), ("0644", "0645"), ("0677", "0700")):
            self.assertEqual(of("constant", f"f({before});"), [f"f({after});"])

    def test_sizes_of_arrays_and_names_are_left_alone(self):
        self.assertEqual(of("constant", "std::array<char, 64> utf8; f(x2);"), [])

    def test_booleans(self):
        self.assertEqual(of("constant", "return true;"), ["return false;"])
        self.assertEqual(of("constant", "int left{};"), ["int left{1};"])
        self.assertEqual(of("constant", "std::tm parts{};"), [])


class Statements(unittest.TestCase):
    def test_calls_assignments_and_steps_are_dropped(self):
        text = "{ a.b(c)->d(e); f = g(h); ++i; if (j) k[0] += 1; }"
        self.assertEqual(of("statement", text),
                         sorted(text.replace(dropped, ";") for dropped in
                                ("a.b(c)->d(e);", "f = g(h);", "++i;", "k[0] += 1;")))

    def test_what_declares_or_leaves_stays(self):
        self.assertEqual(of("statement", "{ int a = f(); T b(c); return d(); throw E(); A(const A&) = delete; }"), [])

    def test_two_lines_are_one_statement(self):
        self.assertEqual(of("statement", "{\n  f(a,\n    b);\n}"), ["{\n  ;\n}"])


class Arguments(unittest.TestCase):
    def test_neighbours_change_places(self):
        self.assertEqual(of("arguments", 'f(a, b.c(), "d, e");'), ['f(a, "d, e", b.c());', 'f(b.c(), a, "d, e");'])

    def test_declarations_stay(self):
        self.assertEqual(of("arguments", "void f(int a, const char* b);"), [])

    def test_the_larger_of_two_is_the_same_either_way(self):
        self.assertEqual(of("arguments", "std::max<std::size_t>(a, b); std::min(c, d);"), [])


class Sql(unittest.TestCase):
    def test_words_of_a_statement(self):
        self.assertEqual(of("sql", '"SELECT a FROM t WHERE b <= ? ORDER BY c DESC"'),
                         ['"SELECT a FROM t WHERE b < ? ORDER BY c DESC"',
                          '"SELECT a FROM t WHERE b <= ? ORDER BY c ASC"'])

    def test_an_assignment_cannot_be_turned_round(self):
        self.assertEqual(of("sql", '"UPDATE t SET a = ? WHERE b = ?"'), ['"UPDATE t SET a = ? WHERE b != ?"'])

    def test_other_texts_are_left_alone(self):
        self.assertEqual(of("sql", '"this OR that"'), [])


class NoCode(unittest.TestCase):
    def test_comments_texts_and_directives_are_left_alone(self):
        for text in ("// a < b, 1", "/* a < b\n 1 */", '"a < b, 1"', "#if A < 1 && \\\n  B > 1", "'1'", 'R"(a < 1)"'):
            self.assertEqual(list(mistakes.mistakes_in("a.cpp", text)), [], text)


class Drawing(unittest.TestCase):
    TEXTS = {"a.cpp": "{ f(a, b); g(1, 2); if (a < b) c = d + 1; }", "b.cpp": "{ h(x == y, true); }"}

    def test_a_seed_draws_all_of_them_once_in_its_own_order(self):
        first, again, other = (list(mistakes.drawn(self.TEXTS, seed)) for seed in ("1", "1", "2"))
        self.assertEqual(first, again)
        self.assertNotEqual(first, other)
        self.assertEqual(len(first), len(set(first)))
        self.assertEqual(set(first), set(itertools.chain.from_iterable(
            mistakes.mistakes_in(file, text) for file, text in self.TEXTS.items())))

    def test_a_place_is_named_by_its_line(self):
        self.assertEqual(mistakes.line_of("a\n  b c\nd", 4), (2, "b c"))
        self.assertEqual(mistakes.line_of("a\nb", 0), (1, "a"))


class Explanations(unittest.TestCase):
    def test_each_is_of_a_line_that_is_there(self):
        texts = mutate.texts_of_the_product([])
        for file, before, after, why in mutate.blocks(mutate.HERE / "explained.txt"):
            self.assertGreater(mutate.lines_like(texts.get(file, ""), before), 0, f"{file}: {before}")
            self.assertNotEqual(before, after)
            self.assertTrue(why.startswith("# "), f"{file}: {before}")

    def test_what_could_be_tested_or_is_ambiguous_is_no_reason(self):
        texts = mutate.texts_of_the_product([])
        uncounted = mutate.explained(texts)
        for file, before, after, why in mutate.blocks(mutate.HERE / "explained.txt"):
            counts = why.startswith("# Untested") or mutate.lines_like(texts[file], before) > 1
            self.assertEqual((file, before, after) not in uncounted, counts, f"{file}: {before}")


if __name__ == "__main__":
    unittest.main()
