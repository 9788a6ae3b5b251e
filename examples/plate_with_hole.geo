// A quarter of a plate in tension with a circular hole at its centre: symmetry
// on x = 0 and y = 0, the hole of radius a at the origin, the tension on x = L.
// Quadrangles refined towards the hole, extruded through the half thickness into
// one layer of quadratic hexahedra.
SetFactory("OpenCASCADE");
a = 0.1;  // hole radius
L = 2.0;  // half length: the far end where the hole no longer shows
W = 1.0;  // half width
t = 0.01; // half thickness
Rectangle(1) = {0, 0, 0, L, W};
Disk(2) = {0, 0, 0, a};
BooleanDifference(3) = {Surface{1}; Delete;}{Surface{2}; Delete;};
MeshSize{PointsOf{Surface{3};}} = 0.08;
MeshSize{Point In BoundingBox{a - 1e-6, -1e-6, -1e-6, a + 1e-6, 1e-6, 1e-6}} = 0.01;
MeshSize{Point In BoundingBox{-1e-6, a - 1e-6, -1e-6, 1e-6, a + 1e-6, 1e-6}} = 0.01;
Mesh.RecombinationAlgorithm = 1;
Recombine Surface{3};
out[] = Extrude{0, 0, t} {Surface{3}; Layers{1}; Recombine;};
Physical Volume("plate") = {out[1]};
Physical Surface("load") = Surface In BoundingBox{L - 1e-6, -1e-6, -1e-6, L + 1e-6, W + 1e-6, t + 1e-6};
Physical Surface("sym_x") = Surface In BoundingBox{-1e-6, -1e-6, -1e-6, 1e-6, W + 1e-6, t + 1e-6};
Physical Surface("sym_y") = Surface In BoundingBox{-1e-6, -1e-6, -1e-6, L + 1e-6, 1e-6, t + 1e-6};
Physical Surface("mid") = {3};
Mesh.ElementOrder = 2;
