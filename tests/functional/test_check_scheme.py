"""vorlen check: warnings about processes that need the staged scheme."""
import re
import unittest

from check_recipes import Checks
from support import changed_example, without_integration

ADD_IT = 'add <integration><scheme val="staged"/></integration> to the recipe, or run it with --scheme staged'


class ContinuousScheme(Checks):
    """Stages are given as (T_val, T_end, TMIn, TEGa, TMAl)."""

    KINDS = ("hot-pause", "spacer", "no-effect")

    @staticmethod
    def stage(label, values):
        t_val, t_end, indium, gallium, aluminium = values
        # A flow is one number, or its values at the start and the end.
        flows = {"TMIn": indium, "TMGa": 0, "TEGa": gallium, "TMAl": aluminium, "N2": 8000, "NH3": 8000, "H2": 0}
        pairs = {name: flow if isinstance(flow, tuple) else (flow, flow) for name, flow in flows.items()}
        return (f'<{label}><name val="{label}"/><tau val="30"/><T val="{t_val}" end="{t_end}"/>'
                '<P val="40000" end="40000"/><dislocations><disl_model val="inherited"/></dislocations>'
                '<delta val="0.008"/><gas_species><Q>' +
                "".join(f'<{name} val="{val}" end="{end}"/>' for name, (val, end) in pairs.items()) +
                f"</Q></gas_species></{label}>")

    def write_process(self, *stages, stress="none", end=""):
        """A recipe of single stages. A list is a periodic stage of three periods, or of as many as its first item
        says."""
        text = without_integration(changed_example("ingan_gan_mqw", ('<material val="InGaN"/>', '<material val="AlInGaN"/>')))
        text = text.replace("</NonstSurfChem>", end + "</NonstSurfChem>")
        if stress != "none":
            text = text.replace('<model val="none"/>', f'<model val="{stress}"/><cut_angle val="0"/><V_angle_05 val="17"/>'
                                '<X_ref val="0.1"/>', 1)
        body = f'<n_stages val="{len(stages)}"/>'
        for number, stage in enumerate(stages, 1):
            label = f"stage_{number}"
            if isinstance(stage, tuple):
                body += self.stage(label, stage)
                continue
            periods, *inner = stage if isinstance(stage[0], int) else (3, *stage)
            body += (f'<{label}><type val="periodic"/><n_periods val="{periods}"/><n_stages val="{len(inner)}"/>' +
                     "".join(self.stage(f"{label}_{m}", values) for m, values in enumerate(inner, 1)) + f"</{label}>")
        self.write("recipe.xml", re.sub("<process_stages>.*</process_stages>",
                                        f"<process_stages>{body}</process_stages>", text, flags=re.DOTALL))

    def found(self, *stages, **options):
        """[(kind, stage)] of the warnings of these kinds; there must be no errors."""
        self.write_process(*stages, **options)
        problems = self.problems_of_file()
        self.assertEqual([problem for problem in problems if problem["severity"] == "error"], [])
        return [(problem["kind"], problem["stage"]) for problem in problems if problem["kind"] in self.KINDS]

    @staticmethod
    def grow(temperature, indium=0):
        return (temperature, temperature, indium, 0.5, 0)

    @staticmethod
    def pause(t_val, t_end=None):
        return (t_val, t_val if t_end is None else t_end, 0, 0, 0)

    def test_a_hot_pause_before_growth(self):
        self.assertEqual(self.found(self.grow(1200), self.pause(1200), self.grow(1200)), [("hot-pause", "stage_2")])
        problem, = [problem for problem in self.problems_of_file() if problem["kind"] == "hot-pause"]
        self.assertEqual((problem["severity"], problem["path"]), ("warning", "NonstSurfChem:process_stages:stage_2:T"))
        self.assertEqual(problem["text"], "stage_2 is at 1200 K without group-III flow, and stage_3 grows after it: the "
                         "continuous scheme may fail or give unphysical results")
        self.assertEqual(problem["hint"], ADD_IT)

    def test_hot_is_1150_K_at_any_time(self):
        grow, pause = self.grow, self.pause
        self.assertEqual(self.found(grow(1149), pause(1149), grow(1149)), [])
        self.assertEqual(self.found(grow(1150), pause(1150), grow(1150)), [("hot-pause", "stage_2")])
        self.assertEqual(self.found(grow(1150), pause(1150, 1000), grow(1000)), [("hot-pause", "stage_2")])
        self.assertEqual(self.found(grow(1140), pause(1140, 1150), grow(1150)), [("hot-pause", "stage_2")])
        # A stage at the end, or with flows, is not a pause.
        self.assertEqual(self.found(grow(1200), pause(1200)), [])
        self.assertEqual(self.found(grow(1200), (1200, 1200, 0, 0, 0.1), grow(1200)), [])
        self.assertEqual(self.found(grow(1200), (1200, 1200, 0, (0, 0.5), 0), grow(1200)), [])

    def test_heating_by_more_than_20_K(self):
        grow, pause = self.grow, self.pause
        self.assertEqual(self.found(grow(1030), pause(1030, 1050), grow(1050)), [])
        self.assertEqual(self.found(grow(1030), pause(1030, 1051), grow(1051)), [("hot-pause", "stage_2")])
        self.assertIn("stage_2 heats up from 1030 K to 1051 K without group-III flow, and stage_3 grows after it",
                      self.problems_of_file()[0]["text"])
        self.assertEqual(self.found(grow(1080), pause(1080, 1010), grow(1010)), [], "cooling")
        # Over two stages, by a jump, and after cooling.
        self.assertEqual(self.found(grow(1030), pause(1030, 1045), pause(1045, 1060), grow(1060)),
                         [("hot-pause", "stage_3")])
        self.assertEqual(self.found(grow(1030), pause(1060), grow(1060)), [("hot-pause", "stage_2")])
        self.assertEqual(self.found(grow(1060), pause(1060, 1030), pause(1030, 1060), grow(1060)),
                         [("hot-pause", "stage_3")])
        # Growth between two pauses separates them.
        self.assertEqual(self.found(grow(1030), pause(1030, 1045), grow(1045), pause(1045, 1060), grow(1060)), [])
        # A process may start with one.
        self.assertEqual(self.found(pause(1000, 1060), grow(1060)), [("hot-pause", "stage_1")])

    def test_one_warning_for_each_pause(self):
        grow, pause = self.grow, self.pause
        self.assertEqual(self.found(grow(1200), pause(1200), pause(1250), grow(1200), pause(1100, 1200), grow(1200)),
                         [("hot-pause", "stage_2"), ("hot-pause", "stage_5")])

    def test_growth_may_follow_later(self):
        self.assertEqual(self.found(self.grow(1200), self.pause(1200), self.pause(1000), self.grow(1000)),
                         [("hot-pause", "stage_2")])

    def test_the_last_sub_stage_precedes_the_first_of_the_next_period(self):
        grow, pause = self.grow, self.pause
        self.assertEqual(self.found([grow(1200), pause(1200)]), [("hot-pause", "stage_1_2")])
        self.assertIn("and stage_1_1 grows after it", self.problems_of_file()[0]["text"])
        self.assertEqual(self.found([1, grow(1200), pause(1200)]), [], "one period")
        # 15 K at the end of a period and 15 K at the start of the next.
        self.assertEqual(self.found([pause(1015, 1030), grow(1030), pause(1000, 1015)]), [("hot-pause", "stage_1_1")])
        self.assertEqual(self.found([1, pause(1015, 1030), grow(1030), pause(1000, 1015)]), [])
        self.assertEqual(self.found([pause(1200), grow(1200)], [grow(1200), pause(1200)], grow(1000)),
                         [("hot-pause", "stage_1_1"), ("hot-pause", "stage_2_2")])

    def test_a_spacer_before_indium_with_relaxation(self):
        grow = self.grow
        relaxed = {"stress": "V_dislocation"}
        self.assertEqual(self.found(grow(1030), grow(1030, 0.2), grow(1030), **relaxed), [("spacer", "stage_2")])
        problem, = [problem for problem in self.problems_of_file() if problem["kind"] == "spacer"]
        self.assertEqual((problem["severity"], problem["path"]),
                         ("warning", "NonstSurfChem:process_stages:stage_2:gas_species:Q:TMIn"))
        self.assertEqual(problem["text"], "with V_dislocation, stage_1 grows without indium before TMIn flows in stage_2: "
                         "the continuous scheme may fail or give unphysical V-defects")
        self.assertEqual(problem["hint"], ADD_IT)
        self.assertEqual(self.found(grow(1030), grow(1030, 0.2)), [], "without relaxation")
        self.assertEqual(self.found(grow(1030, 0.2), grow(1030), grow(1030, 0.2), **relaxed), [], "no spacer")
        self.assertEqual(self.found(grow(1030, (0, 0.2)), grow(1030, 0.2), **relaxed), [], "a ramp of indium")
        self.assertEqual(self.found(grow(1030), grow(1030), **relaxed), [], "no indium")
        # A pause is not a layer, and a ramp that starts without indium has some.
        self.assertEqual(self.found(self.pause(1030), grow(1030, 0.2), **relaxed), [])
        self.assertEqual(self.found(self.pause(1030), grow(1030), grow(1030), grow(1030, (0, 0.2)), **relaxed),
                         [("spacer", "stage_4")])
        self.assertEqual(self.found([grow(1030), grow(1030, 0.2)], **relaxed), [("spacer", "stage_1_2")])

    def test_the_staged_scheme_causes_none_of_them(self):
        stages = (self.grow(1200), self.pause(1200), self.grow(1200), self.grow(1030, 0.2))
        for end, kinds in (("", ["hot-pause", "spacer"]), ('<integration><scheme val="continuous"/></integration>',
                                                           ["hot-pause", "spacer"]),
                           ('<integration><tolerance val="1e-5"/></integration>', ["hot-pause", "spacer", "no-effect"]),
                           ('<integration><scheme val="STAGED"/><tolerance val="1e-5"/></integration>', [])):
            with self.subTest(end):
                self.assertEqual(sorted(kind for kind, _ in self.found(*stages, stress="V_dislocation", end=end)),
                                 sorted(kinds))

    def test_they_can_be_allowed(self):
        self.write_process(self.grow(1200), self.pause(1200), self.grow(1200))
        self.assertEqual(self.check("recipe.xml").returncode, 0)
        self.assertEqual(self.check("--strict", "recipe.xml").returncode, 1)
        self.assertEqual(self.check("--strict", "--allow", "hot-pause", "recipe.xml").returncode, 0)

    def test_a_pause_with_an_invalid_value_is_not_reported(self):
        for old, new in (('<T val="1200" end="1200"/>', '<T val="x" end="1200"/>'), ('<TMAl val="0" end="0"/>', ""),
                         ('<TMAl val="0" end="0"/>', '<TMAl val="-1" end="0"/>'),
                         ('<TMAl val="0" end="0"/>', '<TMAl val="nan" end="nan"/>')):
            with self.subTest(new):
                self.write_process(self.grow(1100), self.pause(1200), self.grow(1100), stress="V_dislocation")
                text = self.read("recipe.xml").decode()
                at = text.index("<stage_2>")
                self.assertIn(old, text[at:])
                self.write("recipe.xml", text[:at] + text[at:].replace(old, new, 1))
                kinds = [problem["kind"] for problem in self.problems_of_file()]
                self.assertFalse(set(kinds) & set(self.KINDS), kinds)
                self.assertNotEqual(kinds, [])

    def test_a_count_that_is_too_high_does_not_hide_them(self):
        self.write_process(self.grow(1200), self.pause(1200), self.grow(1200))
        text = self.read("recipe.xml").decode().replace('<n_stages val="3"/>', '<n_stages val="9"/>')
        self.write("recipe.xml", text)
        self.assertEqual([problem["kind"] for problem in self.problems_of_file()], ["missing-element", "hot-pause"])


if __name__ == "__main__":
    unittest.main()
