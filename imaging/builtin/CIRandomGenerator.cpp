// Noise without end, always the same: every pixel has four independent values, even in [0, 1), that
// depend on its coordinates alone. They stand as they are: colour is not scaled by alpha.
#include "imaging/builtin/Builtin.h"

class CIRandomGenerator : public CIFilter {
public:
    static FilterGuide guide() {
        return {
            .title = "Random pixels",
            .sentence = "Fills everything with coloured noise that stands still.",
            .tags = {"noise", "random"},
            .frameKey = "",
        };
    }

    CIImage outputImage() override {
        return outputOf(*this,
                        applyFrameworkKernel("CIGeneratorKernel", "CI_random", CGRect::infinite(),
                                             RegionOfInterest::identity(), {}));
    }

    static std::span<const InputInfo> inputs() { return {}; }
    static const FilterClassInfo classInformation;
    static Class theClass() { return &classInformation.classInfo; }
    const FilterClassInfo& filterClass() const override { return classInformation; }
};
VORN_BUILTIN(CIRandomGenerator)
