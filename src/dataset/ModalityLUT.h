#ifndef TARV_DATASET_MODALITYLUT_H
#define TARV_DATASET_MODALITYLUT_H

namespace tarv {

// Maps stored element values to physical values: slope * v + intercept.
class ModalityLUT {
public:
  ModalityLUT() { reset(); }

  void reset() {
    valid = false;
    slope = 1.0;
    intercept = 0.0;
  }
  void set(const double& newSlope, const double& newIntercept) {
    slope = newSlope;
    intercept = newIntercept;
    valid = true;
  }
  const double& getSlope() const { return slope; }
  const double& getIntercept() const { return intercept; }
  bool isValid() const { return valid; }
  // Neither looks at the valid flag.
  double map(const double& v) const { return slope * v + intercept; }
  double unmap(const double& v) const { return (v - intercept) / slope; }

private:
  bool valid = false;
  double slope = 1.0;
  double intercept = 0.0;
};

}  // namespace tarv

#endif
