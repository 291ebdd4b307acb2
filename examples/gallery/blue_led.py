"""Blue light-emitting diode: n-GaN, five InGaN wells, electron-blocking layer and p-GaN, all simulated.

Targets: n-GaN 1.5 um; wells of 3 nm with 15 % indium, which emit near 450 nm; barriers of 10 nm; an
electron-blocking layer of 20 nm with 15 % aluminium; p-GaN 120 nm.

The hot layers grow in hydrogen, the active region in nitrogen, because hydrogen removes indium. Temperature,
pressure and carrier gas change only in pauses without metals, under ammonia. Each well gets a thin GaN cap at its
own temperature, so that it does not lose indium while the reactor heats up.
"""
import vorlen


def build():
    recipe = vorlen.Recipe.new("AlInGaN", delta="8 mm", pressure="400 mbar", description=__doc__)
    recipe.template("GaN", "3 um", dislocations="3e8 cm^-2", name="GaN template")

    recipe.grow("n-GaN", "30 min", T="1050 degC", TMGa="180 umol/min", NH3="8 slm", H2="8 slm")
    recipe.pause("60 s", "change to nitrogen", T=("1050 degC", "950 degC"), H2=("8 slm", 0), N2=(0, "8 slm"))
    recipe.pause("60 s", "cooling", T=("950 degC", "850 degC"))

    with recipe.periods(5):
        recipe.grow("GaN barrier", "230 s", T="850 degC", TMGa=0, TEGa="22 umol/min")
        recipe.pause("60 s", "cooling", T=("850 degC", "760 degC"))
        recipe.grow("InGaN well", "69 s", TMIn="5.8 umol/min")
        recipe.grow("GaN cap", "35 s", TMIn=0)
        recipe.pause("60 s", "heating", T=("760 degC", "850 degC"))
    recipe.grow("last GaN barrier", "230 s")

    recipe.pause("90 s", "heating, change to hydrogen", T=("850 degC", "1000 degC"), N2=("8 slm", 0), H2=(0, "8 slm"))
    recipe.grow("p-AlGaN blocking layer", "63 s", TEGa=0, TMGa="60 umol/min", TMAl="10 umol/min")
    recipe.grow("p-GaN", "440 s", TMAl=0)
    return recipe


if __name__ == "__main__":
    build().save("blue_led.xml")
