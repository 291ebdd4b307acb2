"""Bragg mirror for blue light: twelve pairs of AlInN and GaN with the lattice of GaN, nitrogen carrier.

Targets: each layer a quarter of 440 nm thick by its refractive index, 49.5 nm of AlInN (2.22) and 44.5 nm of GaN
(2.47), to 2 %; AlInN with 18 % indium, which has the lattice of GaN; strain of AlInN below 0.1 %.

AlInN needs a low temperature to take up indium, GaN grows better at a higher one. A thin GaN cap covers the AlInN
before the reactor is heated. The gases stay the same.
"""
import vorlen


def build():
    recipe = vorlen.Recipe.new("AlInGaN", delta="6 mm", pressure="100 mbar", description=__doc__)
    recipe.template("GaN", "3 um", dislocations="3e8 cm^-2", name="GaN template")

    recipe.grow("n-GaN", "10 min", T="950 degC", TMGa="60 umol/min", NH3="5 slm", N2="8 slm")
    with recipe.periods(12):
        recipe.pause("60 s", "cooling", T=("950 degC", "810 degC"))
        recipe.grow("AlInN", "14 min", TMGa=0, TMAl="12 umol/min", TMIn="25 umol/min")
        recipe.grow("GaN cap", "10 s", TMGa="20 umol/min", TMAl=0, TMIn=0)
        recipe.pause("60 s", "heating", T=("810 degC", "950 degC"))
        recipe.grow("GaN", "183 s", TMGa="60 umol/min")
    return recipe


if __name__ == "__main__":
    build().save("mirror.xml")
