# Draws the projected potential and the densities of branches 1, 2 and 3 of gaas.dat.
set term png size 720,500
set output "branches.png"
set multiplot layout 2,2 title "GaAs [1 1 0], 100 kV: Ga at x = 0, As at x = 0.5"
set view map
set size ratio -1
set xrange [-0.75:1.25]
set yrange [-0.7072:0.7072]
set xtics 0.5
set ytics 0.5
set xlabel "x [a/2]" offset 0,0.5
set ylabel "y [a/2]" offset 1,0
set title "potential [V]"
set cbtics 50
plot "gaas_pp.txt" using 1:2:3 with image notitle
set cbtics autofreq
do for [j = 1:3] {
    set title sprintf("density of branch %d", j)
    plot sprintf("gaas_b%d.txt", j) using 1:2:3 with image notitle
}
unset multiplot
