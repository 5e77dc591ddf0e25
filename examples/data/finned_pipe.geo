// One repeat unit of a finned pipe: a bore with a warm fluid, a base with two bolt holes, four cooling fins below.
// Lengths in metres. The edges "left" and "right" are congruent and meshed alike, so that units can be joined in a row.
// Mesh:  gmsh -2 -format msh41 -o finned_pipe.msh finned_pipe.geo

Mesh.MeshSizeExtendFromBoundary = 1;
Mesh.MeshSizeFromPoints = 1;
Mesh.Algorithm = 6;

hBase = 0.0175;            // wanted edge lengths: base, bore, fin tips
hBore = 0.0105;
hFin  = 0.0125;

yTop = 0.22;               // the base's upper side
xBore = 0.5;  yBore = 0.27;  rBore = 0.115;
rHump = 0.235;             // outer radius of the pipe
rFillet = 0.09;            // between pipe and base
finHalf = 0.065;           // half a fin's width; the gaps share what is left
root = 0.125 - finHalf;    // radius of the round fin roots
finLength = 0.27;
rBolt = 0.036;  yBolt = 0.13;

// Outline, counterclockwise, from the lower left corner along the fins.
Point(1) = {0, root, 0, hBase};
corner = 1;
outline[] = {};  fins[] = {};
For k In {0:3}
  xc = 0.125 + 0.25 * k;
  long = finLength + (k == 1 || k == 2 ? 0.07 : 0);
  p = 100 + 20 * k;
  Point(p)     = {xc - 0.125, 0, 0, hFin};        // centre of the root on the left
  Point(p + 1) = {xc - finHalf, 0, 0, hFin};
  Point(p + 2) = {xc - finHalf, -long, 0, hFin};
  Point(p + 3) = {xc, -long, 0, hFin};            // centre of the tip
  Point(p + 4) = {xc, -long - finHalf, 0, hFin};
  Point(p + 5) = {xc + finHalf, -long, 0, hFin};
  Point(p + 6) = {xc + finHalf, 0, 0, hFin};
  Point(p + 7) = {xc + 0.125, 0, 0, hFin};        // centre of the root on the right
  Point(p + 8) = {xc + 0.125, root, 0, hBase};
  Circle(p)     = {corner, p, p + 1};
  Line(p + 1)   = {p + 1, p + 2};
  Circle(p + 2) = {p + 2, p + 3, p + 4};
  Circle(p + 3) = {p + 4, p + 3, p + 5};
  Line(p + 4)   = {p + 5, p + 6};
  Circle(p + 5) = {p + 6, p + 7, p + 8};
  fins[] += {p, p + 1, p + 2, p + 3, p + 4, p + 5};
  corner = p + 8;
EndFor
outline[] = fins[];

// Right edge, upper side with the pipe, left edge. A fillet touches the line y = yTop and the pipe from outside.
dx = Sqrt((rHump + rFillet)^2 - (yTop + rFillet - yBore)^2);
part = rHump / (rHump + rFillet);
Point(2) = {1, yTop, 0, hBase};
Point(3) = {xBore + dx, yTop, 0, hBase};
Point(4) = {xBore + dx, yTop + rFillet, 0, hBase};
Point(5) = {xBore + part * dx, yBore + part * (yTop + rFillet - yBore), 0, hBase};
Point(6) = {xBore, yBore, 0, hBore};
Point(7) = {xBore, yBore + rHump, 0, hBase};
Point(8) = {xBore - part * dx, yBore + part * (yTop + rFillet - yBore), 0, hBase};
Point(9) = {xBore - dx, yTop + rFillet, 0, hBase};
Point(10) = {xBore - dx, yTop, 0, hBase};
Point(11) = {0, yTop, 0, hBase};
Line(1) = {corner, 2};
Line(2) = {2, 3};
Circle(3) = {3, 4, 5};
Circle(4) = {5, 6, 7};
Circle(5) = {7, 6, 8};
Circle(6) = {8, 9, 10};
Line(7) = {10, 11};
Line(8) = {11, 1};
outline[] += {1:8};
Curve Loop(1) = outline[];

// A hole of four arcs: centre x, y, radius, edge length, first number.
Macro RoundHole
  Point(first)     = {hx, hy, 0, hh};
  Point(first + 1) = {hx + hr, hy, 0, hh};
  Point(first + 2) = {hx, hy + hr, 0, hh};
  Point(first + 3) = {hx - hr, hy, 0, hh};
  Point(first + 4) = {hx, hy - hr, 0, hh};
  Circle(first)     = {first + 1, first, first + 2};
  Circle(first + 1) = {first + 2, first, first + 3};
  Circle(first + 2) = {first + 3, first, first + 4};
  Circle(first + 3) = {first + 4, first, first + 1};
  Curve Loop(first) = {first, first + 1, first + 2, first + 3};
Return

hx = xBore; hy = yBore; hr = rBore; hh = hBore; first = 300; Call RoundHole;
hx = 0.125; hy = yBolt; hr = rBolt; hh = 0.8 * hBore; first = 320; Call RoundHole;
hx = 0.875; hy = yBolt; hr = rBolt; hh = 0.8 * hBore; first = 340; Call RoundHole;

Plane Surface(1) = {1, 300, 320, 340};
Periodic Curve {1} = {-8} Translate {1, 0, 0};

Physical Surface("body", 1) = {1};
Physical Curve("inlet", 2) = {300:303};
Physical Curve("left", 3) = {8};
Physical Curve("right", 4) = {1};
Physical Curve("fins", 5) = fins[];
Physical Curve("top", 6) = {2:7};
Physical Curve("bolts", 7) = {320:323, 340:343};
